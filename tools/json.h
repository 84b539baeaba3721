// JSON for programs that read the tool's output.
#pragma once

#include <json-c/json.h>

#include <cstdio>
#include <memory>

namespace tools {

// Owns a value; one that is added to an array or an object passes on to it by release().
using Json = std::unique_ptr<json_object, int (*)(json_object*)>;

inline Json OwnJson(json_object* value) {
  return {value, json_object_put};
}

// Prints a value on standard output, a line feed at the end.
inline void PrintJson(const Json& value) {
  constexpr int kStyle =
      JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE;
  printf("%s\n", json_object_to_json_string_ext(value.get(), kStyle));
}

}  // namespace tools
