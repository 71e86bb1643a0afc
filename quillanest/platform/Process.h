// Services of the system that concern the process as a whole.
#pragma once

#include <string>

namespace quillanest {

// The identifier of this process.
[[nodiscard]] int process_id();

// What the system says of the last call that failed on this thread; a text that lasts for ever. Nothing is allocated.
[[nodiscard]] const char *last_system_error() noexcept;

// The name of this machine, empty if the system does not report it.
[[nodiscard]] std::string host_name();

// The value of an environment variable, valid until the environment changes. Null if it is not set, and in a program
// that was started with more rights than its user has: the user must not control such a program.
[[nodiscard]] const char *trusted_environment(const char *name);

// Sets an environment variable that has no value yet, and leaves one that has. False if memory is short.
[[nodiscard]] bool set_environment_default(const char *name, const char *value);

// Runs `before` before every fork of the process, and `in_parent` or `in_child` after it. False if memory is short. A
// system without forks has nothing to do.
[[nodiscard]] bool at_fork(void (*before)(), void (*in_parent)(), void (*in_child)());

// Ends the process with that identifier at once. Identifiers of 0 and below name no process and end nothing, although
// the system would take them for groups of processes. Failures are silent.
void end_process(int id);

}  // namespace quillanest
