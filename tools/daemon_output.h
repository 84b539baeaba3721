// Follows the output of the running daemon: in systemd's journal, or in the file to which its
// standard output is redirected.
#pragma once

#include <ctime>
#include <fstream>
#include <string>
#include <vector>

namespace tools {

class DaemonOutput {
 public:
  // Throws Failure with a hint if the output is written elsewhere.
  DaemonOutput();

  // Returns the lines printed since the last call.
  std::vector<std::string> NewLines();

 private:
  void Read();

  time_t since_ = 0;    // start of the journal entries to read
  std::ifstream file_;  // not open if the journal is read
  std::string text_;
  size_t taken_ = 0;  // bytes of the text already returned
};

}  // namespace tools
