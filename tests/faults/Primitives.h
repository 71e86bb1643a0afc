// Mutexes, segments, threads and files without an image.
#pragma once

#include <array>
#include <atomic>
#include <filesystem>
#include <optional>
#include <string>
#include <unistd.h>

#include "quillanest/Quillanest.h"
#include "tests/support/Mutexes.h"
#include "tests/support/TestRoot.h"

// What the first use of a named mutex calls.
inline const std::string kLocking =
    "lstat glob open flock fstat posix_fallocate mmap pthread_mutexattr_init pthread_mutex_init ";

// Catches: a handle for what is not there, and a failure that comes as a crash.
struct Primitives {
  void ready() {
    name.emplace();
    std::filesystem::current_path(root.folder());
    for (const auto &file : root.files(".")) {
      if (file.starts_with("SM_")) std::filesystem::remove(root.path(file));
    }
    root.write("words", "12345");
    // Threads that have ended are put away when the next one starts or ends.
    (void)KillThreadEx(reinterpret_cast<void *>(1));
    ran = false;
    waits = {-1, -1};
    time = {};
  }
  void run() {
    {
      CMutexEx mutex(name->c_str());
      waits[0] = mutex.Wait(0);
      if (waits[0] == 0) (void)mutex.Release();
      waits[1] = mutex.Wait(50);
      if (waits[1] == 0) (void)mutex.Release();
    }
    CShareMemory memory(77);
    in_memory = memory.Create(9000, false, true) != nullptr;
    CShareMemory file(78);
    in_file = file.Create(9000, true, true) != nullptr;
    thread = CreateThreadEx(
        [](void *flag) {
          static_cast<std::atomic<bool> *>(flag)->store(true);
          return 0UL;
        },
        &ran);
    size = GetFileSize(path.c_str());
    ChangeFileSize(path.c_str(), 10);
    GetLocalTime(time);
  }
  std::string verdict(bool clean) {
    for (int i = 0; i < 1000 && thread != nullptr && !ran; ++i) usleep(1000);
    (void)CMutexEx(name->c_str());  // which the process keeps
    const bool missing = !in_memory || !in_file || thread == nullptr || waits != std::array<int, 2>{0, 0} || size != 5;
    std::string wrong = clean && missing ? "something is not there " : "";
    if (ran != (thread != nullptr)) wrong += "the thread ";
    if (size != 5 && size != -1) wrong += "size ";
    const std::string words = root.read("words");
    const bool changed = words == std::string(12, '\0');
    if (!changed && (clean || (words != "12345" && !words.empty()))) wrong += "words " + words;
    if (clean ? time.wYear < 2000 : time.wYear != 0 && time.wYear < 2000) wrong += "time ";
    return wrong;
  }

  TestRoot root;
  const std::string path = root.path("words");
  std::optional<MutexName> name;
  std::atomic<bool> ran{false};
  std::array<int, 2> waits{};
  bool in_memory = false, in_file = false;
  void *thread = nullptr;
  int size = 0;
  SYSTEMTIME time{};
};
