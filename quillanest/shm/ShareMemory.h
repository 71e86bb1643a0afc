// CShareMemory: one named shared-memory segment.
//
//   CShareMemory segment(1200);                                // key 1200 of this process
//   void *start = segment.Create(4096, false, true);           // opened, or made with 4096 zero bytes
//   if (start == nullptr) return;                              // the system refuses
//   CShareMemory other(1200);
//   const bool same = other.Attach() == start;                 // every object of one key sees the same bytes
//
// A segment's name is the key given by the caller plus the identifier of this process, so objects find an image only
// within the process that built it. Every object with the same key sees the same bytes.
//
// Lifetime: a segment and its content exist as long as one object of the process has it mapped; the system discards
// them with the last mapping, or with the process, however it ends. A file-backed segment leaves its bytes in its file.
// Threads: an object is used by one thread at a time; the bytes are shared and carry no lock of their own.
#pragma once

#include "quillanest/System.h"
#include "quillanest/platform/NamedRegion.h"

namespace quillanest {
struct SegmentAccess;
}

class QUILLANEST_API CShareMemory {
 public:
  // The effective key is `nKey` plus the process identifier. Not mapped, size 0, not file-backed.
  // Numbers convert, as callers of the published form expect.
  CShareMemory(int nKey = -1);  // NOLINT(google-explicit-constructor)

  // Takes over key, file flag and size, never the mapping: an unmapped target stays unmapped, a mapped one keeps its
  // own.
  CShareMemory(const CShareMemory &other);
  CShareMemory &operator=(const CShareMemory &other);

  // Unmaps the segment.
  ~CShareMemory();

  // Sets the effective key to `nKey` plus the process identifier, for the next Create or Attach. A mapping stays.
  // Always true.
  bool SetKey(int nKey);

  // Opens the segment under the effective key as it is, smaller than `nSize` or larger, or creates it with `nSize`
  // bytes, all zero. With `bUseFile` a new segment is backed by the file "SM_<key>" in the folder that the environment
  // variable MAP_FILE_PATH names (used unchanged, so it ends with a separator; ignored in a program that was started
  // with more rights than its user has), else in the current working folder; if that file cannot be opened the segment
  // is an ordinary one. `bZero` clears the first `nSize` bytes, for every mapping of an existing segment too, but none
  // after its end.
  // Returns the address of the mapping. An object that has one returns it at once and ignores the arguments. Null if
  // `nSize` is not positive, if the effective key is -1, if the name of the file is that of a link or of another user's
  // file, or if the system refuses.
  void *Create(int nSize, bool bUseFile, bool bZero);

  // Opens the existing segment under the effective key and returns the address of the mapping; at once if the object
  // has one. Null if there is no such segment or the effective key is -1.
  void *Attach();

  // Both unmap the segment if it is mapped, exactly as the destructor does.
  void Detach();
  void Destroy();

 private:
  friend struct quillanest::SegmentAccess;

  int key_;
  bool use_file_ = false;
  int size_ = 0;
  quillanest::NamedRegion mapping_;
};
