#pragma once
// Runs a program as a user runs it (a real process through /bin/sh) inside a scratch folder of
// its own: the container, caches, config, data, sync and runtime folders all point into the
// scratch folder, so a run never reads or writes the user's files, and a test can look at what a
// run left behind. The folder is removed when the sandbox ends.
//
// One sandbox is one user's machine: runs in the same sandbox share their files. Not
// thread-safe; a test owns its sandbox.

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/testing/scratch_folder.hpp"

namespace ombrine {

struct ProgramRun {
  int exitCode = -1;  // -1 when the program did not exit normally
  std::string out;
  std::string err;
};

class ProgramSandbox {
 public:
  // `name` becomes part of the scratch folder's name, for finding it while debugging.
  explicit ProgramSandbox(const std::string& name = "ombrine-test");

  const std::filesystem::path& root() const noexcept { return folder_.path(); }
  // The container folder ($OMBRINE_CONTAINER).
  std::filesystem::path container() const { return root() / "group"; }
  // The environment assignments of the sandbox, as shell words ("A=... B=...").
  std::string environment() const;

  // Runs `program arguments` (shell words) with the sandbox's environment, `extraEnvironment`
  // (shell words, applied after it), NO_COLOR=1 and no D-Bus session; stdout and stderr are
  // captured apart.
  ProgramRun run(const std::string& program, const std::string& arguments,
                 const std::string& extraEnvironment = "") const;
  // `run` of `program --services sim arguments` in English (LANG=en_US.UTF-8), with the
  // simulator's `faults` (OMBRINE_SIM_FAULTS) when not empty, then `extraEnvironment`.
  ProgramRun runSimulated(const std::string& program, const std::string& arguments, const std::string& faults = "",
                          const std::string& extraEnvironment = "") const;

  // Starts `program` with `arguments` (one word each) in the background, with the caller's
  // environment less D-Bus and every OMBRINE_ variable, then the sandbox's, then
  // `extraEnvironment` ("NAME=value" each); stdout and stderr go to "<log>.out" and "<log>.err"
  // in the scratch folder. Returns the process id, -1 when it could not start; reap it with
  // `waitForExit`.
  pid_t start(const std::string& program, const std::vector<std::string>& arguments,
              const std::vector<std::string>& extraEnvironment, const std::string& log) const;
  // Waits for a started process; its exit code, or -1 when it did not exit normally.
  static int waitForExit(pid_t pid);

 private:
  ScratchFolder folder_;
};

// The whole file, or "" when it cannot be read.
std::string readTextFile(const std::filesystem::path& path);

}  // namespace ombrine
