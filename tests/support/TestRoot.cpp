#include "tests/support/TestRoot.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <stdlib.h>

namespace fs = std::filesystem;

TestRoot::TestRoot(std::string_view more) {
  std::string name = (fs::temp_directory_path() / "qn-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  folder_ = name + "/";
  fs::create_directories(folder_ + "conf");
  fs::create_directories(folder_ + "data");
  configure("DataInFile=1\nRtdbDataPath=data/\n" + std::string(more));
  setenv("QUILLANEST_ROOT", folder_.c_str(), 1);
}

TestRoot::~TestRoot() {
  unsetenv("QUILLANEST_ROOT");
  std::error_code error;
  fs::remove_all(folder_, error);
}

std::string TestRoot::write(std::string_view below, std::string_view bytes) const {
  std::ofstream file(path(below), std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + path(below));
  return path(below);
}

std::string TestRoot::read(std::string_view below) const {
  std::ifstream file(path(below), std::ios::binary);
  if (!file) return "<missing>";
  return {std::istreambuf_iterator<char>(file), {}};
}

bool TestRoot::exists(std::string_view below) const { return fs::exists(path(below)); }

std::vector<std::string> TestRoot::files(std::string_view below) const {
  std::vector<std::string> names;
  for (const auto &entry : fs::directory_iterator(path(below))) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

void TestRoot::configure(std::string_view lines) const {
  write("conf/fix_Rtdb.ini", "[Quillanest]\n" + std::string(lines));
}
