#pragma once
// Runs a piece of a test inside a private network namespace holding only `lo`: a forked
// child calls unshare(CLONE_NEWNET), runs the setup commands (iproute2 `ip ...`), runs
// the body and sends its text back through a pipe. Nothing leaves the namespace. Where
// the machine refuses a namespace, the result says why so the test can skip.

#include <sched.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

struct CmNetnsResult {
  bool ran = false;
  std::string skipReason;  ///< set when the namespace could not be made
  std::string output;      ///< what the body returned
};

inline CmNetnsResult cm_run_in_netns(const std::vector<std::string>& setup, const std::function<std::string()>& body) {
  CmNetnsResult result;
  int fds[2];
  if (pipe(fds) != 0) {
    result.skipReason = "pipe failed";
    return result;
  }
  pid_t child = fork();
  if (child == 0) {
    close(fds[0]);
    std::string message;
    if (unshare(CLONE_NEWNET) != 0) {
      message = std::string("S") + "unshare(CLONE_NEWNET) refused: " + strerror(errno);
    } else {
      message = "O";
      for (const std::string& command : setup) {
        if (system((command + " 2>/dev/null").c_str()) != 0) {
          message = "S`" + command + "` failed (iproute2 missing?)";
          break;
        }
      }
      if (message == "O") message += body();
    }
    ssize_t written = write(fds[1], message.data(), message.size());
    (void)written;
    _exit(0);
  }
  close(fds[1]);
  std::string text;
  char buffer[4096];
  ssize_t n;
  while ((n = read(fds[0], buffer, sizeof buffer)) > 0) text.append(buffer, static_cast<size_t>(n));
  close(fds[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (text.empty()) {
    result.skipReason = "the namespace child reported nothing";
  } else if (text[0] == 'S') {
    result.skipReason = text.substr(1);
  } else {
    result.ran = true;
    result.output = text.substr(1);
  }
  return result;
}
