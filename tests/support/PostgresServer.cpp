#include "tests/support/PostgresServer.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "tests/support/Child.h"
#include "tests/support/SilentServer.h"

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const std::string &what) { throw std::runtime_error("PostgreSQL: " + what); }

// The folder of the server's programs: where pg_config says, else the newest of those that distributions use.
std::string find_binaries() {
  std::vector<std::string> folders;
  if (FILE *pipe = popen("pg_config --bindir 2>/dev/null", "r"); pipe != nullptr) {
    std::array<char, 4096> line{};
    if (fgets(line.data(), line.size(), pipe) != nullptr) folders.emplace_back(line.data());
    (void)pclose(pipe);
  }
  if (!folders.empty() && folders[0].ends_with('\n')) folders[0].pop_back();
  std::error_code error;
  for (const auto &entry : fs::directory_iterator("/usr/lib/postgresql", error)) {
    folders.push_back((entry.path() / "bin").string());
  }
  for (const std::string &folder : folders) {
    if (fs::exists(folder + "/initdb", error) && fs::exists(folder + "/postgres", error)) return folder + "/";
  }
  fail("no server is installed");
}

// The account that runs the server: root may not. Null when the test is not run as root.
const passwd *server_account() {
  if (geteuid() != 0) return nullptr;
  const passwd *account = getpwnam("postgres");
  if (account == nullptr) account = getpwnam("nobody");
  if (account == nullptr) fail("there is no account to run it under");
  return account;
}

// Reads until the stream ends, or a line that contains `last`.
std::string read_until(int stream, const std::string &last) {
  std::string text;
  for (char c = 0; read(stream, &c, 1) == 1;) {
    text += c;
    if (c == '\n' && !last.empty() && text.find(last) != std::string::npos) break;
  }
  return text;
}

int reap(pid_t process) {
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

}  // namespace

PostgresServer::PostgresServer() : binaries_(find_binaries()) {
  folder_ = (fs::temp_directory_path() / "qn-pg-XXXXXX").string();
  if (mkdtemp(folder_.data()) == nullptr) fail("no temporary folder");
  folder_ += '/';
  std::ofstream(folder_ + "password") << kPassword;
  if (const passwd *account = server_account(); account != nullptr) {
    for (const std::string &path : {folder_, folder_ + "password"}) {
      if (chown(path.c_str(), account->pw_uid, account->pw_gid) != 0) fail("cannot hand over " + path);
    }
  }
  int output = -1;
  const pid_t maker = spawn("initdb",
                            "--no-sync -E UTF8 --locale=C --auth-local=trust --auth-host=scram-sha-256 -U " +
                                std::string(kUser) + " --pwfile=" + folder_ + "password -D " + folder_ + "data",
                            output);
  const std::string said = read_until(output, {});
  close(output);
  if (reap(maker) != 0) fail("initdb failed: " + said);
  port_ = SilentServer().port();  // free now
  start();
}

PostgresServer::~PostgresServer() {
  stop();
  std::error_code error;
  fs::remove_all(folder_, error);
}

void PostgresServer::start() {
  // Rejected statements are not logged, so the pipe that the log goes to never fills.
  server_ = spawn("postgres",
                  "-D " + folder_ + "data -k " + folder_ + " -p " + std::to_string(port_) +
                      " -c listen_addresses=127.0.0.1 -c fsync=off -c log_min_messages=log -c log_checkpoints=off"
                      " -c log_min_error_statement=panic -c client_connection_check_interval=100",
                  log_);
  const std::string ready = "ready to accept connections";
  const std::string said = read_until(log_, ready);
  if (said.find(ready) == std::string::npos) fail("the server does not start: " + said);
}

void PostgresServer::stop() noexcept {
  if (server_ > 0) {
    kill(server_, SIGQUIT);
    (void)reap(server_);
  }
  if (log_ >= 0) close(log_);
  server_ = log_ = -1;
}

void PostgresServer::wait_for_death() {
  (void)reap(server_);
  server_ = -1;
  stop();
}

std::string PostgresServer::run(const std::string &statements) const {
  const std::string script = folder_ + "script.sql";
  if (!(std::ofstream(script) << statements << '\n')) fail("cannot write " + script);
  int output = -1;
  const pid_t client = spawn("psql",
                             "-X -q -A -t -v ON_ERROR_STOP=1 -h " + folder_ + " -p " + std::to_string(port_) + " -U " +
                                 kUser + " -d postgres -f " + script,
                             output);
  std::string rows = read_until(output, {});
  close(output);
  if (reap(client) != 0) fail(rows);
  return rows;
}

// Runs one of the server's programs under the server's account; arguments are separated by blanks. What it writes
// comes out of `output`.
pid_t PostgresServer::spawn(const std::string &program, const std::string &arguments, int &output) const {
  std::vector<std::string> words{binaries_ + program};
  std::istringstream stream(arguments);
  for (std::string word; stream >> word;) words.push_back(word);
  const passwd *account = server_account();
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) fail("no pipe");
  const pid_t parent = getpid();
  const pid_t process = fork();
  if (process < 0) fail("no process");
  if (process == 0) {
    // The order counts: a change of the account cancels the signal of the parent's death.
    if (account != nullptr &&
        (setgroups(0, nullptr) != 0 || setgid(account->pw_gid) != 0 || setuid(account->pw_uid) != 0)) {
      _exit(126);
    }
    prctl(PR_SET_PDEATHSIG, SIGQUIT);
    if (getppid() != parent || chdir("/") != 0) _exit(125);
    setenv("LC_ALL", "C", 1);
    setenv("PGCLIENTENCODING", "UTF8", 1);
    dup2(ends[1], STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    execute(words);
  }
  close(ends[1]);
  output = ends[0];
  return process;
}
