// The nine free functions: time, processes, threads and files.
//
//   SYSTEMTIME time{};
//   GetLocalTime(time);                        // local time, whole seconds
//   ReadTime("2024-3-7 9:05:00", &time);
//   const int bytes = GetFileSize("plant.schema");
//
// None of them keeps state or reports an error other than by its result. All may run on any thread.
#pragma once

#include "quillanest/System.h"
#include "quillanest/platform/SystemTime.h"

// Fills `time` with the current local time; milliseconds are always 0. Untouched if the system does not know it.
QUILLANEST_API void GetLocalTime(SYSTEMTIME &time);

// Reads "year-month-day hour:minute:second" from `text` (white space may precede each number) into `time`. No range is
// checked. If all six numbers are present and each lies between 0 and 65535, the members hold them, and wDayOfWeek and
// wMilliseconds are 0. If the text stops early, the member after the last number read receives that number's high half
// and the others keep their content: after a date alone wHour is 0 and minute, second and milliseconds are as before. A
// null text changes nothing.
QUILLANEST_API void ReadTime(const char *text, SYSTEMTIME *time);

// Ends the process with that identifier at once; its parent sees it killed, not with an exit code. 0 and negative
// numbers end nothing. Failures are silent.
QUILLANEST_API void KillProcess(int nProcessID);

// Starts a thread that runs routine(argument) and returns its handle; null on failure. A handle whose thread has ended
// is stale and needs no closing. In a forked child the handles of its parent are stale. A routine that throws ends the
// program.
QUILLANEST_API void *CreateThreadEx(unsigned long (*routine)(void *), void *argument);

// Ends a thread of CreateThreadEx at once: nothing that it holds in memory is released. Use it only on threads that
// hold nothing and are not inside a call of this library. Always true, also for a stale or invalid handle and for the
// caller's own, which end nothing.
QUILLANEST_API bool KillThreadEx(void *handle);

// The size of the file in bytes, modulo 2^32 as a signed number; -1 if there is no such file.
QUILLANEST_API int GetFileSize(const char *path);

// Makes the file a run of zero bytes, 4 x (size / 4) + 4 of them, creating it if it does not exist. A negative size
// counts as a very large unsigned one. Nothing if the file cannot be opened.
QUILLANEST_API void ChangeFileSize(const char *path, int size);

// Fills an existing file with zeros, its size rounded down to a multiple of 4. Nothing if it does not exist.
QUILLANEST_API void ClearFile(const char *path);

// Converts a default text into a value of type code `type` at `destination`: for CHAR, UCHAR, STRING and PASSWD the
// whole text with its terminator, for numbers the type's own width, for TIME as ReadTime. Nothing for an empty or null
// text and for unknown codes. The caller guarantees that `destination` has enough bytes for the value.
QUILLANEST_API void SetDefaultField(int type, char *destination, const char *text);
