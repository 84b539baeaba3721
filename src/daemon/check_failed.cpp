// The end of a daemon in which a check of the standard library's containers has failed.
//
// libstdc++ has this function too, but nothing else that the daemon needs: loading the library for
// it alone would nearly double the daemon's memory and the time of its start.
#include <cstdio>
#include <cstdlib>

#ifdef _GLIBCXX_ASSERTIONS
namespace std {  // NOLINT(cert-dcl58-cpp): where the containers' headers declare it

void __glibcxx_assert_fail(const char* file, int line, const char* function,
                           const char* condition) noexcept {
  fprintf(stderr, "%s:%d: %s: check failed: %s\n", file, line, function, condition);
  abort();
}

}  // namespace std
#endif
