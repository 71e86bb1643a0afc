// Writes the C headers of a schema: plant_headers SCHEMA FOLDER. Exit code 0 if every database has one.
#include <cstdio>

#include "quillanest/Quillanest.h"

namespace {

bool g_failed = false;

void report(const char *text) {
  std::fprintf(stderr, "plant_headers: %s\n", text);
  g_failed = true;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: plant_headers SCHEMA FOLDER\n");
    return 2;
  }
  // The result of BuildIncludeFile does not cover single files; the message does.
  quillanest::set_message_handler(report);
  CRtdbManager manager;
  if (!manager.RtdbManagerInit(false, argv[1])) report("cannot start from this schema");
  if (!g_failed && !manager.BuildIncludeFile(argv[2])) report("no database");
  return g_failed ? 1 : 0;
}
