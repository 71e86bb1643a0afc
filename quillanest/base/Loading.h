// Work that is done when the library is loaded: a fork must not find its result half made by another thread, or it must
// not wait until a program ends. A function that does such work is marked [[gnu::constructor(kWhenLoaded)]]. It returns
// even if memory is short; the first use then does the work.
#pragma once

namespace quillanest {

// Before the constructors of static objects, which may use the library if its code is linked into a program.
inline constexpr int kWhenLoaded = 1000;

}  // namespace quillanest
