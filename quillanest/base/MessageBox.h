// Messages for the user: the few failures that no return value reports.
//
//   quillanest::set_message_handler([](const char *text) { show_in_window(text); });
//
// Without a handler messages go to the standard error stream.
#pragma once

#include "quillanest/System.h"

namespace quillanest {

// Shows a text, which has no line end, is in the code page of the schema and is valid during the call. Runs on the
// thread whose call failed, with no lock of the library held; must not throw.
using MessageHandler = void (*)(const char *text);

// Messages go to `handler` from now on; null restores the standard error stream. Any thread may call it.
QUILLANEST_API void set_message_handler(MessageHandler handler) noexcept;

// Shows a message.
void show_message(const char *text);

}  // namespace quillanest
