// What keeps a user's files safe from the command: telling whether two
// names are one file, and removing the output of a run that is interrupted.
#pragma once

#include <cstdint>     // std::uint64_t
#include <filesystem>  // std::filesystem::path
#include <optional>    // std::optional

namespace strix::platform {

// A file as the system tells files apart, whatever the name it is reached
// by (another spelling, a hard link, a symbolic link): the device and inode,
// or on Windows the volume serial number and the file index.
struct FileIdentity {
  std::uint64_t volume;
  std::uint64_t file;
  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};
// Of the file a name reaches (links followed); nothing when there is none.
std::optional<FileIdentity> identity_of(const std::filesystem::path& name);
// Of what the descriptor reads (standard input), if it is a file.
std::optional<FileIdentity> identity_of(int fd);

// An interrupted run leaves no cut-off output that could pass for a result:
// on Ctrl-C (SIGINT or the console's event), termination (SIGTERM, Ctrl-Break
// or closing the console) or a hang-up, the output file that this run
// created or truncated is removed, and the process ends as it would have
// without the removal. One per process; it is armed by the opening of the
// output, never before, so that a file of the user's that the run has not
// truncated stays.
class InterruptedOutputRemoval {
 public:
  explicit InterruptedOutputRemoval(const std::filesystem::path& output);
  InterruptedOutputRemoval(const InterruptedOutputRemoval&) = delete;
  InterruptedOutputRemoval& operator=(const InterruptedOutputRemoval&) = delete;

  // Around the output's creation: an interruption in between waits until
  // it is known whether the file was opened.
  void opening();
  void opened(bool opened);
  // The output is complete: an interruption no longer removes it.
  void disarm();
};

}  // namespace strix::platform
