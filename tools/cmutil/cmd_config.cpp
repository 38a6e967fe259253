// Configuration commands (ini, json) and the configuration / trace-file demo.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "CmCommand.h"
#include "cmutil/config/CmConfigIO.h"
#include "cmutil/config/CmJson.h"
#include "cmutil/trace/CmT120Trace.h"
#include "cmutil/trace/CmTraceMacros.h"

namespace {

const char kIniUsage[] = "ini <file> <section> <key>\n  writes the value of key in section of an INI file";
const char kJsonUsage[] =
    "json <file>\n  parses a JSON object or array from file (\"-\": standard input) and writes it re-serialised";

/// Reads all of `path` (\"-\": standard input) into `out`; false after one message on stderr.
bool ReadText(const char* path, std::string& out) {
  std::ifstream file;
  std::istream* in = &std::cin;
  if (std::strcmp(path, "-") != 0) {
    file.open(path, std::ios::binary);
    in = &file;
  }
  if (!*in) {
    std::fprintf(stderr, "cmutil: cannot read %s: %s\n", path, std::strerror(errno));
    return false;
  }
  out.assign(std::istreambuf_iterator<char>(*in), std::istreambuf_iterator<char>());
  return true;
}

int ini_command(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: cmutil %s\n", kIniUsage);
    return 2;
  }
  std::ifstream probe(argv[1], std::ios::binary);
  if (!probe) {
    std::fprintf(stderr, "cmutil: cannot read %s: %s\n", argv[1], std::strerror(errno));
    return 1;
  }
  char value[257] = {0};
  if (!get_string_param_from_ini_force(argv[1], argv[2], argv[3], value, sizeof value - 1)) {
    std::fprintf(stderr, "cmutil: %s: [%s] %s not found\n", argv[1], argv[2], argv[3]);
    return 1;
  }
  std::printf("%s\n", value);
  return 0;
}

int json_command(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: cmutil %s\n", kJsonUsage);
    return 2;
  }
  std::string text;
  if (!ReadText(argv[1], text)) return 1;
  json::Value value = json::Deserialize(text);
  if (value.IsNull()) {
    std::fprintf(stderr, "cmutil: %s: not a JSON object or array\n", argv[1]);
    return 1;
  }
  std::printf("%s\n", json::Serialize(value).c_str());
  return 0;
}

long records_in(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  char header[33] = {0};
  in.read(header, 32);
  return in.gcount() == 32 ? std::strtol(header, nullptr, 10) - 32 : -1;
}

int config_demo() {
  json::Value doc = json::Deserialize("{\"kel_trace_level\": 2, \"codec\": \"opus\", \"rates\": [16000, 48000]}");
  std::printf(" json: %s (%zu members)\n", json::Serialize(doc).c_str(), doc.size());

  // The demo runs with the trace-file route on; these three lines show the routing by
  // level: information and warning to the information file, errors to both files.
  const int savedOption = cm_get_trace_option();
  const int savedMask = g_traceMask.load();
  cm_set_trace_option(savedOption | CM_TRACE_ROUTE_FILE);
  set_external_trace_mask(2);
  const bool open = cm_trace_files_open();
  CM_INFO_TRACE("config demo: an information line for the info file");
  CM_WARNING_TRACE("config demo: a warning line, info file only");
  CM_ERROR_TRACE("config demo: an error line, info and error files, code=" << CCmTextFormator::hex << 0x46004001u);
  cm_trace_files_flush();
  cm_set_trace_option(savedOption);
  set_external_trace_mask(savedMask);
  if (!open) {
    std::printf(" trace files: no log folder could be created under %s\n", cm_trace_files_folder().c_str());
    return 0;
  }
  const CCmString info = cm_trace_files_info_path();
  const CCmString error = cm_trace_files_error_path();
  std::printf(" trace files in %s\n", cm_trace_files_folder().c_str());
  std::printf("  info:  %s (%ld bytes of records)\n", info.c_str(), records_in(info));
  std::printf("  error: %s (%ld bytes of records)\n", error.c_str(), records_in(error));
  return 0;
}

}  // namespace

CMUTIL_REGISTER_COMMAND("ini", kIniUsage, ini_command);
CMUTIL_REGISTER_COMMAND("json", kJsonUsage, json_command);
CMUTIL_REGISTER_DEMO(40, "config", config_demo);
