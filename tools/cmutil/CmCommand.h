#pragma once
// Subcommand and demo registry of the cmutil program. Each tools/cmutil/cmd_<area>.cpp
// registers its own entries with static registrars, so areas never edit a shared table.

#include <functional>
#include <string>
#include <vector>

struct CmToolCommand {
  std::string name;
  std::string usage;
  std::function<int(int argc, char** argv)> run;
};

struct CmToolDemo {
  int order;
  std::string title;
  std::function<int()> run;
};

std::vector<CmToolCommand>& cm_tool_commands();
std::vector<CmToolDemo>& cm_tool_demos();

struct CmToolCommandRegistrar {
  CmToolCommandRegistrar(const char* name, const char* usage, std::function<int(int, char**)> run) {
    cm_tool_commands().push_back({name, usage, std::move(run)});
  }
};

struct CmToolDemoRegistrar {
  CmToolDemoRegistrar(int order, const char* title, std::function<int()> run) {
    cm_tool_demos().push_back({order, title, std::move(run)});
  }
};

#define CMUTIL_TOOL_CONCAT2(a, b) a##b
#define CMUTIL_TOOL_CONCAT(a, b) CMUTIL_TOOL_CONCAT2(a, b)
// CMUTIL_REGISTER_COMMAND("name", "usage", fn): fn(argc, argv) with argv[0] the name;
// prints usage and returns 2 on bad arguments.
#define CMUTIL_REGISTER_COMMAND(name, usage, fn) \
  static CmToolCommandRegistrar CMUTIL_TOOL_CONCAT(cm_tool_command_, __LINE__)(name, usage, fn)
// CMUTIL_REGISTER_DEMO(order, "title", fn): demo sections run in ascending order.
#define CMUTIL_REGISTER_DEMO(order, title, fn) \
  static CmToolDemoRegistrar CMUTIL_TOOL_CONCAT(cm_tool_demo_, __LINE__)(order, title, fn)
