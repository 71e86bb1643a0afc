// Work that is done when the library is loaded: what a fork must not meet half made by another thread, and what must
// not wait until a program ends. A function of it is marked [[gnu::constructor(kWhenLoaded)]]. It ends with a result
// also if memory is short; the first use does the work then.
#pragma once

namespace quillanest {

// Before the static objects of a program that this code is linked into, which may use the library.
inline constexpr int kWhenLoaded = 1000;

}  // namespace quillanest
