// In: a text for ZSK_IsDottedQuad.
// Holds: 1 exactly for four groups of at most three digits with dots between; nothing behind the
// text is looked at.
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/target.h"
#include "net/tcp_socket.h"

namespace {

bool IsGroup(const std::string& group) {
  return group.size() <= 3 && group.find_first_not_of("0123456789") == std::string::npos;
}

bool IsQuad(const std::string& text) {
  std::vector<std::string> groups(1);
  for (const char c : text) {
    if (c == '.') {
      groups.emplace_back();
    } else {
      groups.back() += c;
    }
  }
  bool good = groups.size() == 4;
  for (const std::string& group : groups)
    good &= IsGroup(group);
  return good;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<char> text(data, data + size);
  const int wanted = IsQuad({text.begin(), text.end()}) ? 1 : 0;
  FUZZ_CHECK(ZSK_IsDottedQuad(text.data(), static_cast<int>(size)) == wanted);
  return 0;
}
