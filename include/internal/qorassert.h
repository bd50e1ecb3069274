// Assertions that are part of the behaviour: unlike assert they stay on in every build. They report
// in the words of the platform's own assert and abort. Not installed.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>

// Tests a condition; `module` is the path that the message names as the source.
#define QOR_ASSERT(module, condition)                                                              \
    ((condition) ? static_cast<void>(0)                                                            \
                 : qorAssertionFailed(#condition, (module), __LINE__, __func__))

[[noreturn]] inline void qorAssertionFailed(const char* expression, const char* module, int line,
                                            const char* function) {
#if defined(__APPLE__)
    fprintf(stderr, "Assertion failed: (%s), function %s, file %s, line %d.\n", expression,
            function, module, line);
#else
    fprintf(stderr, "%s: %s:%d: %s: Assertion `%s' failed.\n", program_invocation_short_name,
            module, line, function, expression);
#endif
    abort();
}
