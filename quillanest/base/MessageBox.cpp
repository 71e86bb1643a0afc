#include "quillanest/base/MessageBox.h"

#include <atomic>
#include <cstdio>

namespace quillanest {
namespace {

std::atomic<MessageHandler> g_handler = nullptr;

}  // namespace

void set_message_handler(MessageHandler handler) noexcept { g_handler = handler; }

void show_message(const char *text) {
  if (const MessageHandler handler = g_handler; handler != nullptr) return handler(text);
  (void)std::fprintf(stderr, "%s\n", text);
}

}  // namespace quillanest
