// cmutil: the library's command-line program. "cmutil demo" shows the library at work;
// the other subcommands expose single facilities (see "cmutil help").

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "CmCommand.h"
#include "cmutil/base/CmUtilInit.h"
#include "cmutil/trace/CmT120Trace.h"
#include "cmutil/trace/CmTrace.h"

std::vector<CmToolCommand>& cm_tool_commands() {
  static std::vector<CmToolCommand> commands;
  return commands;
}

std::vector<CmToolDemo>& cm_tool_demos() {
  static std::vector<CmToolDemo> demos;
  return demos;
}

namespace {

/// One command's entry: its synopsis line, then its description lines, indented alike.
/// A synopsis that starts with the program's name has it left out.
void print_entry(FILE* out, std::string usage) {
  if (usage.compare(0, 7, "cmutil ") == 0) usage.erase(0, 7);
  size_t start = 0;
  while (start <= usage.size()) {
    const size_t end = std::min(usage.find('\n', start), usage.size());
    std::fprintf(out, "  %s\n", usage.substr(start, end - start).c_str());
    start = end + 1;
  }
}

void print_usage(FILE* out) {
  std::fprintf(out, "usage: cmutil <command> [arguments]\n\ncommands:\n");
  print_entry(out, "help\n  this text");
  print_entry(out, "version\n  writes the library version");
  print_entry(out, "demo\n  runs every demo section of the library");
  auto commands = cm_tool_commands();
  std::sort(commands.begin(), commands.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  for (const auto& command : commands) print_entry(out, command.usage);
}

int run_demo(int argc, char**) {
  if (argc != 1) {
    std::fprintf(stderr, "usage: cmutil demo\n");
    return 2;
  }
  auto demos = cm_tool_demos();
  std::stable_sort(demos.begin(), demos.end(), [](const auto& a, const auto& b) { return a.order < b.order; });
  // Every trace line of the run also goes to the library's trace files (route bit 2).
  const int savedOption = cm_get_trace_option();
  cm_set_trace_option(savedOption | CM_TRACE_ROUTE_FILE);
  const bool filesOpen = cm_trace_files_open();
  int failures = 0;
  for (const auto& demo : demos) {
    std::printf("== %s ==\n", demo.title.c_str());
    std::fflush(stdout);
    int rc = demo.run();
    if (rc != 0) {
      std::printf("demo section \"%s\" failed (%d)\n", demo.title.c_str(), rc);
      ++failures;
    }
    std::printf("\n");
  }
  cm_trace_files_flush();
  cm_set_trace_option(savedOption);
  if (filesOpen) {
    std::printf("trace lines of this run are in %s:\n", cm_trace_files_folder().c_str());
    std::printf("  information: %s\n", cm_trace_files_info_path().c_str());
    std::printf("  errors:      %s\n", cm_trace_files_error_path().c_str());
  } else {
    const CCmString folder = cm_trace_files_folder();
    std::printf("trace files: no log folder could be created%s%s\n", folder.empty() ? "" : " at ", folder.c_str());
  }
  std::printf("%zu demo sections, %d failed\n", demos.size(), failures);
  return failures == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    print_usage(stderr);
    return 2;
  }
  const char* name = argv[1];
  if (std::strcmp(name, "help") == 0 || std::strcmp(name, "--help") == 0 || std::strcmp(name, "-h") == 0) {
    print_usage(stdout);
    return 0;
  }
  if (std::strcmp(name, "version") == 0) {
    if (argc != 2) {
      std::fprintf(stderr, "usage: cmutil version\n");
      return 2;
    }
    std::printf("cmutil %s\n", cm_util_version());
    return 0;
  }
  if (std::strcmp(name, "demo") == 0) return run_demo(argc - 1, argv + 1);
  for (const auto& command : cm_tool_commands()) {
    if (command.name == name) return command.run(argc - 1, argv + 1);
  }
  std::fprintf(stderr, "cmutil: unknown command \"%s\"\n\n", name);
  print_usage(stderr);
  return 2;
}
