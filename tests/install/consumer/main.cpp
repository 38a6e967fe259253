// A program built against the installed library: it includes the umbrella header and
// checks a few results, so a broken package fails to compile, link or run.
#include <cmutil/cmutil.h>

#include <cstdio>
#include <cstring>

int main() {
  char buffer[256];
  CCmTextFormator text(buffer, sizeof buffer);
  text << "consumer " << 42;
  char copy[32];
  if (strcpy_s(copy, sizeof copy, buffer) != 0 || std::strcmp(copy, "consumer 42") != 0) return 1;
  std::printf("cmutil %s: %s\n", cm_util_version(), copy);
  return 0;
}
