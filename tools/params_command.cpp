#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "cmmap/cmmap.h"
#include "cmmap/param_block.h"
#include "tools/commands.h"
#include "tools/device_mode.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/format.h"
#include "tools/json.h"
#include "tools/output.h"
#include "tools/param_fields.h"
#include "tools/processes.h"

namespace tools {

namespace {

using Bytes = std::vector<uint8_t>;

// --- The file ----------------------------------------------------------------------------------

void RequireWhole(const std::string& path, intmax_t size) {
  if (size >= PARAM_BLOCK_SIZE) return;
  throw Failure(Format("%s is not a parameter block: it has %jd bytes, not %d", path.c_str(), size,
                       PARAM_BLOCK_SIZE));
}

// A block, mapped and locked like every process of the device does it.
class MappedBlock {
 public:
  explicit MappedBlock(const std::string& path) : path_(path) {
    struct stat status;
    if (access(path.c_str(), R_OK | W_OK) != 0 || stat(path.c_str(), &status) != 0)
      FailOn("open", path);
    if (!S_ISREG(status.st_mode)) throw Failure(path + " is not a regular file");
    RequireWhole(path, status.st_size);
    const int result =
        CMMAP_Init(&map_, path.c_str(), PARAM_BLOCK_KEY, CMMAP_OPEN, PARAM_BLOCK_SIZE);
    // Without the semaphore, other processes would not be excluded.
    if (result == 0 && map_.sem >= 0) return;
    map_.Deinit(&map_);
    throw Failure("cannot map and lock " + path);
  }
  ~MappedBlock() { map_.Deinit(&map_); }
  MappedBlock(const MappedBlock&) = delete;
  MappedBlock& operator=(const MappedBlock&) = delete;

  Bytes Copy() {
    Bytes block(PARAM_BLOCK_SIZE);
    if (map_.Read(&map_, block.data(), PARAM_BLOCK_SIZE) == 0) return block;
    throw Failure(path_ + " was truncated during the access");
  }

  // Stores all changes under one lock and synchronizes them, so that they survive a loss of power.
  // Other fields are not written: their owners may have changed them in the meantime.
  void Store(const std::vector<ParamChange>& changes) {
    map_.Lock(&map_);
    // The previous holder of the locks may have truncated the file.
    struct stat status = {};
    const bool is_whole = fstat(map_.fd, &status) == 0 && status.st_size >= PARAM_BLOCK_SIZE;
    for (const ParamChange& change : changes)
      if (is_whole) StoreParam(change, static_cast<uint8_t*>(map_.map));
    map_.Unlock(&map_);
    RequireWhole(path_, status.st_size);
    // Synchronize after releasing the locks, so that other processes need not wait.
    if (msync(map_.map, PARAM_BLOCK_SIZE, MS_SYNC) == 0) return;
    FailOn("write", path_);
  }

 private:
  std::string path_;
  CMMAP map_;
};

// Reads under the locks, which require write permission; without it, reads the file directly.
Bytes ReadBlock(const std::string& path) {
  if (access(path.c_str(), W_OK) == 0) return MappedBlock(path).Copy();
  Bytes block = ReadFile(path);
  RequireWhole(path, std::ssize(block));
  return block;
}

// --- The commands ------------------------------------------------------------------------------

void Show(const std::string& path, bool is_json) {
  const Bytes block = ReadBlock(path);
  const Json object = OwnJson(json_object_new_object());
  for (const ParamField& field : ParamFields()) {
    const bool is_model = IsModel(field);
    const int32_t value = NumberIn(block, field);
    const std::string text = is_model ? ModelIn(block) : ParamText(field, value);
    json_object_object_add(object.get(), field.name,
                           is_model ? NewJsonText(text) : json_object_new_int(value));
    if (is_json) continue;
    Print(stdout, "%-13s %s%s\n", field.name, text.c_str(),
          is_model || IsKnown(field, value) ? "" : "  (invalid)");
  }
  if (is_json) PrintJson(object);
}

std::vector<ParamChange> ParseChanges(const std::vector<std::string>& texts) {
  std::vector<ParamChange> changes;
  std::ranges::transform(texts, std::back_inserter(changes), ParseParamChange);
  for (const ParamChange& change : changes) {
    if (!IsModel(*change.field) || IsKnownModel(change.model)) continue;
    Print(stderr, "rs232ctl: warning: unknown model %s; the daemon treats it as a PTZ head\n",
          change.model.c_str());
  }
  return changes;
}

void Create(const std::string& path, const std::vector<std::string>& texts) {
  Bytes block = NewParamBlock();
  for (const ParamChange& change : ParseChanges(texts))
    StoreParam(change, block.data());
  CreateFile(path, block);
}

void Set(const std::string& path, const std::vector<std::string>& texts) {
  const std::vector<ParamChange> changes = ParseChanges(texts);
  MappedBlock(path).Store(changes);
  if (path != PARAM_BLOCK_PATH) return;
  Print(stdout, "a running daemon uses the old values until it is restarted: %s\n",
        IsService() ? "systemctl restart rs232d" : "/etc/init.d/S60rs232d restart");
}

// --- The command line --------------------------------------------------------------------------

struct Request {
  std::string path = PARAM_BLOCK_PATH;
  bool is_json = false;
  std::vector<std::string> texts;
};

std::string FieldsHelp() {
  std::string text = "Parameters:\n";
  for (const ParamField& field : ParamFields())
    text += Format("  %-13s %s: %s\n", field.name, field.help, AllowedText(field).c_str());
  return text;
}

CLI::App* AddCommand(CLI::App* params, const char* name, const char* help, Request* request) {
  CLI::App* app = params->add_subcommand(name, help);
  app->add_option("--file", request->path, "path of the parameter block")
      ->type_name("FILE")
      ->capture_default_str();
  return app;
}

void AddChanges(CLI::App* app, Request* request, bool is_required) {
  app->add_option("NAME=VALUE", request->texts, "new values")->type_name("")->required(is_required);
}

}  // namespace

void AddParamsCommand(CLI::App* app) {
  CLI::App* params = app->add_subcommand("params", "Show, create or change the parameter block");
  params->require_subcommand(1);
  params->footer(FieldsHelp() +
                 "The daemon reads the block only when it starts.\n"
                 "Example: rs232ctl params set baud=19200 parity=even");
  const auto request = std::make_shared<Request>();

  CLI::App* show = AddCommand(params, "show", "Print the parameters", request.get());
  show->add_flag("--json", request->is_json,
                 "print a JSON object; all values except the model are numbers");
  show->footer("Example: rs232ctl params show --json");
  show->final_callback([request] { Show(request->path, request->is_json); });

  CLI::App* create = AddCommand(params, "create", "Create a parameter block", request.get());
  AddChanges(create, request.get(), false);
  create->footer(FieldsHelp() +
                 "Does not change an existing file.\n"
                 "Example: rs232ctl params create --file param.dat model=QB-620 ptz-enable=on");
  create->final_callback([request] { Create(request->path, request->texts); });

  CLI::App* set = AddCommand(params, "set", "Change parameters", request.get());
  AddChanges(set, request.get(), true);
  set->footer(FieldsHelp() +
              "Waits for the locks of the block, which all processes of the device use.\n"
              "Example: rs232ctl params set model=QB-310 baud=19200");
  set->final_callback([request] { Set(request->path, request->texts); });
}

}  // namespace tools
