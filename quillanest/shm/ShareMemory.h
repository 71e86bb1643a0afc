// CShareMemory: one named shared-memory segment.
//
// A segment's name is the key given by the caller plus the identifier of this process, so objects find an image only
// within the process that built it. Every object with the same key sees the same bytes.
//
// Lifetime: a segment and its content exist as long as one view of it is open in the process; the system discards them
// with the last view, or with the process, however it ends. A file-backed segment leaves its bytes in its file.
// Threads: an object is used by one thread at a time; the bytes are shared and carry no lock of their own.
#pragma once

#include "quillanest/System.h"
#include "quillanest/platform/NamedRegion.h"

namespace quillanest {
struct SegmentAccess;
}

class QUILLANEST_API CShareMemory {
 public:
  // The effective key is `nKey` plus the process identifier. No view, size 0, not file-backed.
  // Numbers convert, as callers of the published form expect.
  CShareMemory(int nKey = -1);  // NOLINT(google-explicit-constructor)

  // Takes over key, file flag and size, never the view: an unmapped target stays unmapped, a mapped one keeps its own.
  CShareMemory(const CShareMemory &other);
  CShareMemory &operator=(const CShareMemory &other);

  // Closes the view.
  ~CShareMemory();

  // Sets the effective key to `nKey` plus the process identifier, for the next Create or Attach. A view stays.
  // Always true.
  bool SetKey(int nKey);

  // Opens the segment under the effective key as it is, smaller than `nSize` or larger, or creates it with `nSize`
  // bytes, all zero. With `bUseFile` a new segment is backed by the file "SM_<key>" in the folder that the environment
  // variable MAP_FILE_PATH names (used unchanged, so it ends with a separator; ignored in a program that was started
  // with more rights than its user has), else in the current working folder; when that file cannot be opened the
  // segment is an ordinary one. `bZero` clears the first `nSize` bytes, for every view of an existing segment too, but
  // none after its end.
  // Returns the address of the view. An object that has a view returns it at once and ignores the arguments. Null when
  // `nSize` is not positive, when the effective key is -1, when the name of the file is that of a link or of another
  // user's file, or when the system refuses.
  void *Create(int nSize, bool bUseFile, bool bZero);

  // Opens the existing segment under the effective key and returns the address of the view; at once when the object has
  // one. Null when there is no such segment or the effective key is -1.
  void *Attach();

  // Closes the view, if any. The three are the same operation.
  void Detach();
  void Destroy();

 private:
  friend struct quillanest::SegmentAccess;

  int key_;
  bool use_file_ = false;
  int size_ = 0;
  quillanest::NamedRegion view_;
};
