// JSON output for other programs.
#pragma once

#include <json-c/json.h>

#include <initializer_list>
#include <memory>
#include <string>

#include "tools/output.h"

namespace tools {

// Owns a value. release() passes it on when it is added to an array or an object.
using Json = std::unique_ptr<json_object, int (*)(json_object*)>;

inline Json OwnJson(json_object* value) {
  return {value, json_object_put};
}

struct JsonMember {
  const char* key;
  json_object* value;
};

// Returns an object that owns its members' values.
inline json_object* NewJsonObject(std::initializer_list<JsonMember> members) {
  json_object* object = json_object_new_object();
  for (const JsonMember& member : members)
    json_object_object_add(object, member.key, member.value);
  return object;
}

// Returns a text as a value.
inline json_object* NewJsonText(const std::string& text) {
  return json_object_new_string_len(text.data(), static_cast<int>(text.size()));
}

// Returns an array with the value of each item.
template <typename Items, typename Value>
json_object* NewJsonArray(const Items& items, Value value) {
  json_object* array = json_object_new_array();
  for (const auto& item : items)
    json_object_array_add(array, value(item));
  return array;
}

// Returns a value as indented text with a line feed at its end.
inline std::string JsonText(const Json& value) {
  constexpr int kStyle =
      JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE;
  return EscapedJson(json_object_to_json_string_ext(value.get(), kStyle)) + "\n";
}

// Prints a value on standard output, indented or on one line.
inline void PrintJson(const Json& value) {
  PrintText(JsonText(value));
}
inline void PrintJsonLine(const Json& value) {
  constexpr int kStyle = JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE;
  PrintText(EscapedJson(json_object_to_json_string_ext(value.get(), kStyle)));
}

}  // namespace tools
