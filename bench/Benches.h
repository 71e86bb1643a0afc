// The measurements by subject. Each registers its benchmarks, called "OPERATION | WHO"; the table is made from these
// names. WHO begins with "kernel" or "limit", everybody else is a peer.
#pragma once

#include <filesystem>
#include <string>

#include "bench/Image.h"

namespace bench {

inline std::string name_of(const std::string &operation, const std::string &who) { return operation + " | " + who; }

// Searches, edits and scans of tables. The image must outlive the benchmarks.
void register_tables(Image &image);

// Text files. `postgres_port`: of a server on 127.0.0.1 with a superuser and a database called bench that needs no
// password and may read the image's folder; empty without one.
void register_texts(Image &image, const std::string &postgres_port);

// Start-ups, each in a process of its own that runs `program`. Files are made in `folder`.
void register_starts(const std::string &program, const std::filesystem::path &folder);

// Such a process: starts in `folder` and prints the nanoseconds of processor time it took. The program's exit code.
int measure_start(const std::filesystem::path &folder);

}  // namespace bench
