#include "bench/micro_results.h"

#include <json-c/json.h>

#include <memory>
#include <stdexcept>

namespace bench {
namespace {

constexpr char kSection[] = "In-process paths";

struct Release {
  void operator()(json_object* object) const { json_object_put(object); }
};

std::string Text(json_object* object, const char* key) {
  json_object* value = nullptr;
  if (!json_object_object_get_ex(object, key, &value)) return "";
  return json_object_get_string(value);
}

double Value(json_object* object, const char* key) {
  json_object* value = nullptr;
  if (!json_object_object_get_ex(object, key, &value)) return 0;
  return json_object_get_double(value);
}

}  // namespace

void AddMicroResults(const std::string& path, const char* subject, Results* results) {
  const std::unique_ptr<json_object, Release> root(json_object_from_file(path.c_str()));
  json_object* benchmarks = nullptr;
  if (root == nullptr || !json_object_object_get_ex(root.get(), "benchmarks", &benchmarks) ||
      !json_object_is_type(benchmarks, json_type_array)) {
    throw std::runtime_error(path + " is no output of micro_bench");
  }
  for (size_t i = 0; i < json_object_array_length(benchmarks); ++i) {
    json_object* row = json_object_array_get_idx(benchmarks, i);
    const std::string name = Text(row, "name");
    results->Add({.id = "micro." + name,
                  .section = kSection,
                  .label = name,
                  .unit = Text(row, "time_unit"),
                  .better = Better::kLess},
                 subject, Value(row, "cpu_time"));
  }
}

}  // namespace bench
