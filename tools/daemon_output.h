// What the daemon prints from now on, where it can be had: from systemd's journal, or from the file
// that its standard output goes to.
#pragma once

#include <ctime>
#include <fstream>
#include <string>
#include <vector>

namespace tools {

class DaemonOutput {
 public:
  // Throws Failure, with what would help, where it goes elsewhere.
  DaemonOutput();

  // The lines that have come since the last call.
  std::vector<std::string> NewLines();

 private:
  void Read();

  time_t since_ = 0;    // of the journal
  std::ifstream file_;  // not open: the journal is read
  std::string text_;
  size_t taken_ = 0;  // of the text
};

}  // namespace tools
