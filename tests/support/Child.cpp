#include "tests/support/Child.h"

#include <cerrno>
#include <cstdlib>
#include <map>
#include <signal.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kSayDescriptor = 3;
constexpr std::string_view kFlag = "--child=";

std::map<std::string, ChildMain, std::less<>> &children() {
  static std::map<std::string, ChildMain, std::less<>> known;
  return known;
}

}  // namespace

RegisterChild::RegisterChild(std::string_view name, ChildMain function) { children().emplace(name, function); }

void say(std::string_view line) {
  std::string text(line);
  text += '\n';
  if (write(kSayDescriptor, text.data(), text.size()) < 0) std::abort();
}

void wait_for_the_end() {
  for (;;) pause();
}

Child::Child(std::string_view name, const std::vector<std::string> &arguments) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  std::string flag(kFlag);
  flag += name;
  std::vector<std::string> words{"/proc/self/exe", flag};
  words.insert(words.end(), arguments.begin(), arguments.end());
  id_ = fork();
  if (id_ < 0) throw std::runtime_error("no child");
  if (id_ == 0) {
    dup2(ends[1], kSayDescriptor);
    if (ends[0] != kSayDescriptor) close(ends[0]);
    if (ends[1] != kSayDescriptor) close(ends[1]);
    execute(words);
  }
  close(ends[1]);
  pipe_ = ends[0];
}

Child::~Child() {
  kill();
  close(pipe_);
}

std::string Child::hear() {
  std::string line;
  for (char c = 0; read(pipe_, &c, 1) == 1 && c != '\n';) line += c;
  return line;
}

void Child::kill() {
  if (id_ <= 0) return;
  ::kill(id_, SIGKILL);
  (void)wait();
}

int Child::wait() {
  int status = 0;
  while (id_ > 0 && waitpid(id_, &status, 0) < 0 && errno == EINTR) {
  }
  id_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void execute(std::vector<std::string> words) {
  std::vector<char *> argv;
  for (std::string &word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  execv(argv[0], argv.data());
  _exit(127);
}

int in_fork(const std::function<int()> &work) {
  const pid_t child = fork();
  if (child == 0) _exit([&]() noexcept { return work(); }());
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) throw std::runtime_error("no fork");
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

bool run_child(int argc, char **argv, int &exit_code) {
  if (argc < 2) return false;
  const std::string_view first = argv[1];
  if (!first.starts_with(kFlag)) return false;
  const auto found = children().find(first.substr(kFlag.size()));
  if (found == children().end()) {
    exit_code = 126;
    return true;
  }
  exit_code = found->second({argv + 2, argv + argc});
  return true;
}
