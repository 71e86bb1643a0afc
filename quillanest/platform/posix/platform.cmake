# Linux: the sources of this folder, and what the shared library asks of the linker.
set(QUILLANEST_PLATFORM_SOURCES
  Descriptor.cpp
  FileReplacement.cpp
  FileSizeSignal.cpp
  InstallRoot.cpp
  MutexFile.cpp
  MutexFolder.cpp
  NamedMutex.cpp
  NamedRegion.cpp
  Path.cpp
  Process.cpp
  SystemTime.cpp
  TextFile.cpp
  Thread.cpp)

set(QUILLANEST_PLATFORM_LINK_OPTIONS
  LINKER:--version-script=${CMAKE_CURRENT_SOURCE_DIR}/exports.map
  LINKER:-z,nodelete)  # a thread, a signal handler or a handler of fork may be in use after dlclose
