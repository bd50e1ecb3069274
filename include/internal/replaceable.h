// Marks a function that a test program of internals puts its own definition in place of. Not
// installed.
#pragma once

// On the definition only: a replacement that sees the declaration has to win.
#define QOR_REPLACEABLE __attribute__((weak))
