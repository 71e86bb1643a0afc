// The one macro of the library: the attribute of everything a client program may link against.
// Everything without it is hidden (the whole library is compiled with hidden visibility).
#pragma once

#define QUILLANEST_API [[gnu::visibility("default")]]
