// A second process of a test: the test program runs itself again and calls a registered function.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

// A function that a child process runs; its result is the exit code. It speaks to the test through say().
using ChildMain = int (*)(const std::vector<std::string> &arguments);

// Makes `function` known under `name`; use at namespace scope: `const RegisterChild kHolder{"holder", run_holder};`
struct RegisterChild {
  RegisterChild(std::string_view name, ChildMain function);
};

// Called in a child: sends a line to the test.
void say(std::string_view line);

// Called in a child: waits until the test ends it.
[[noreturn]] void wait_for_the_end();

// A running child. The destructor kills and reaps it.
class Child {
 public:
  explicit Child(std::string_view name, const std::vector<std::string> &arguments = {});
  ~Child();
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;

  // The next line that the child says; empty when it has ended.
  std::string hear();
  // Ends the child at once, as SIGKILL does, and reaps it.
  void kill();
  // Waits for the child to end by itself and returns its exit code; -1 when a signal ended it.
  int wait();
  [[nodiscard]] int id() const { return id_; }

 private:
  int id_ = -1;
  int pipe_ = -1;
};

// Becomes the program that the first word names, with the words as its arguments.
[[noreturn]] void execute(std::vector<std::string> words);

// Runs `work` in a fork of this process, which ends with it; its result, or minus the signal that ended it.
int in_fork(const std::function<int()> &work);

// Runs the child function that the arguments name, if they do; for main().
bool run_child(int argc, char **argv, int &exit_code);
