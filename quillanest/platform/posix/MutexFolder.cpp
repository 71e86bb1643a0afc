// All processes of a user have to agree on one folder, even while another user makes and removes the plain name. A file
// in a folder of a random name marks that folder, for good, as the chosen one; such a folder comes before the plain
// one.
//
// A process that finds no chosen folder decides with the locks of all folders of random names. It looks for them after
// it has seen that the plain folder or one of a random name exists, and they are never removed. So of two processes
// that decide, the later one sees what the earlier one saw. Either they share a lock, and look again once they have it,
// or the earlier one saw no random folder, was sure of the plain folder, and the later one finds it too.
#include "quillanest/platform/posix/MutexFolder.h"

#include <algorithm>
#include <deque>
#include <errno.h>
#include <fcntl.h>
#include <glob.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace quillanest {
namespace {

[[noreturn]] void raise_error(int error) { throw std::system_error(error, std::generic_category()); }

// The system's answer to a question about a path; raises if there is none.
bool is_there(int result) {
  if (result != 0 && errno != ENOENT) raise_error(errno);
  return result == 0;
}

// Whether there is such a folder of this user, open to no other. It may lack permissions of its owner if it was made
// under a umask that takes them away.
bool is_own_folder(const std::string &path) {
  struct stat status {};
  if (!is_there(lstat(path.c_str(), &status)) || !S_ISDIR(status.st_mode) || status.st_uid != geteuid()) return false;
  if ((status.st_mode & 07777) != 0700 && chmod(path.c_str(), 0700) != 0) raise_error(errno);
  return true;
}

struct Found : glob_t {
  explicit Found(const std::string &pattern) : glob_t{} {
    const int result = glob(pattern.c_str(), GLOB_ERR | GLOB_NOSORT, nullptr, this);
    if (result != 0 && result != GLOB_NOMATCH) raise_error(ENOMEM);
  }
  ~Found() { globfree(this); }
  Found(const Found &) = delete;
  Found &operator=(const Found &) = delete;
};

// This user's folders of random names, in the same order for all processes.
std::vector<std::string> random_folders(const std::string &plain) {
  const Found found(plain + ".*");
  std::vector<std::string> folders(found.gl_pathv, found.gl_pathv + found.gl_pathc);
  std::erase_if(folders, [](const std::string &folder) { return !is_own_folder(folder); });
  std::sort(folders.begin(), folders.end());
  return folders;
}

// No mutex has a file of this name.
std::string mark_in(const std::string &folder) { return folder + "/chosen"; }

// The one that was chosen; empty if none was.
std::string chosen_of(const std::vector<std::string> &folders) {
  const auto is_chosen = [](const std::string &folder) { return is_there(access(mark_in(folder).c_str(), F_OK)); };
  const auto found = std::find_if(folders.begin(), folders.end(), is_chosen);
  return found == folders.end() ? std::string() : *found;
}

class OpenFile {
 public:
  OpenFile(const std::string &path, int flags) {
    while ((descriptor_ = open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600)) < 0) {
      if (errno != EINTR) raise_error(errno);
    }
  }
  ~OpenFile() { close(descriptor_); }
  OpenFile(const OpenFile &) = delete;
  OpenFile &operator=(const OpenFile &) = delete;

  void lock() const {
    while (flock(descriptor_, LOCK_EX) != 0) {
      if (errno != EINTR) raise_error(errno);
    }
  }

 private:
  int descriptor_ = -1;
};

// Makes the plain folder, or one of a random name if another user has taken the plain one.
void make_folder(const std::string &plain) {
  if (mkdir(plain.c_str(), 0700) == 0) return;
  if (errno != EEXIST) raise_error(errno);
  if (is_own_folder(plain)) return;  // another process of this user was faster
  std::string name = plain + ".XXXXXX";
  if (mkdtemp(name.data()) == nullptr) raise_error(errno);
}

// Runs with the locks of all random folders that existed before.
std::string decide(const std::string &plain) {
  const std::vector<std::string> folders = random_folders(plain);
  if (std::string chosen = chosen_of(folders); !chosen.empty()) return chosen;
  if (is_own_folder(plain)) return plain;
  const OpenFile mark(mark_in(folders.at(0)), O_WRONLY | O_CREAT);
  return folders[0];
}

}  // namespace

std::string mutex_folder(const std::string &plain) {
  if (!is_own_folder(plain) && random_folders(plain).empty()) make_folder(plain);
  const std::vector<std::string> folders = random_folders(plain);
  if (folders.empty() && is_own_folder(plain)) return plain;
  if (std::string chosen = chosen_of(folders); !chosen.empty()) return chosen;
  std::deque<OpenFile> locked;
  for (const std::string &folder : folders) locked.emplace_back(folder, O_RDONLY | O_DIRECTORY).lock();
  return decide(plain);
}

}  // namespace quillanest
