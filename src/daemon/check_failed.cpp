// Ends the daemon when a check in a standard library container fails.
//
// libstdc++ provides this function, too, but the daemon needs nothing else from that library.
// Loading it would nearly double the daemon's memory and start-up time.
#include <cstdio>
#include <cstdlib>

#ifdef _GLIBCXX_ASSERTIONS
namespace std {  // NOLINT(cert-dcl58-cpp): the containers' headers declare it here

void __glibcxx_assert_fail(const char* file, int line, const char* function,
                           const char* condition) noexcept {
  fprintf(stderr, "%s:%d: %s: check failed: %s\n", file, line, function, condition);
  abort();
}

}  // namespace std
#endif
