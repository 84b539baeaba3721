#include "tools/daemon_output.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <iterator>

#include "ipc/cicomm.h"
#include "tools/failure.h"
#include "tools/format.h"
#include "tools/processes.h"

namespace tools {

DaemonOutput::DaemonOutput() {
  if (IsService()) {
    since_ = time(nullptr);
    Read();
    taken_ = text_.size();
    return;
  }
  const pid_t daemon = HolderOfPort("udp", RS232_COMMAND_PORT).pid;
  const std::string path = "/proc/" + std::to_string(daemon) + "/fd/1";
  std::error_code error;
  if (std::filesystem::is_regular_file(path, error)) file_.open(path);
  if (!file_.is_open()) {
    throw Failure(
        "cannot follow the output of rs232d: it is written neither to the journal nor to a "
        "readable file");
  }
  file_.seekg(0, std::ios::end);
}

std::vector<std::string> DaemonOutput::NewLines() {
  Read();
  std::vector<std::string> lines;
  for (size_t end = 0; (end = text_.find('\n', taken_)) != std::string::npos; taken_ = end + 1)
    lines.push_back(text_.substr(taken_, end - taken_));
  return lines;
}

void DaemonOutput::Read() {
  if (file_.is_open()) {
    file_.clear();  // the file may have grown
    text_.append(std::istreambuf_iterator<char>(file_), {});
    return;
  }
  text_.clear();
  const std::string command =
      Format("exec journalctl -q -u rs232d -o cat --since @%lld", static_cast<long long>(since_));
  FILE* journal = popen(command.c_str(), "re");
  if (journal == nullptr) return;
  std::array<char, 4096> piece;
  for (size_t count = 0; (count = fread(piece.data(), 1, piece.size(), journal)) > 0;)
    text_.append(piece.data(), count);
  pclose(journal);
}

}  // namespace tools
