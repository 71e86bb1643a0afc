// Writes the C headers of a schema: plant_headers SCHEMA FOLDER. Exit code 0 when every database has one.
#include <cstdio>

#include "quillanest/Quillanest.h"

namespace {

bool g_failed = false;

void tell(const char *text) {
  std::fprintf(stderr, "plant_headers: %s\n", text);
  g_failed = true;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: plant_headers SCHEMA FOLDER\n");
    return 2;
  }
  // The result of BuildIncludeFile does not tell about single files; the message does.
  quillanest::set_message_handler(tell);
  CRtdbManager manager;
  if (!manager.RtdbManagerInit(false, argv[1])) tell("cannot start from this schema");
  if (!g_failed && !manager.BuildIncludeFile(argv[2])) tell("no database");
  return g_failed ? 1 : 0;
}
