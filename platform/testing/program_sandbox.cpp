#include "platform/testing/program_sandbox.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace ombrine {

ProgramSandbox::ProgramSandbox(const std::string& name) {
  std::string pattern = (std::filesystem::temp_directory_path() / (name + "-XXXXXX")).string();
  root_ = ::mkdtemp(pattern.data());
  std::filesystem::create_directories(root_ / "runtime");
  std::filesystem::permissions(root_ / "runtime", std::filesystem::perms::owner_all);
}

ProgramSandbox::~ProgramSandbox() {
  std::error_code ignored;
  std::filesystem::remove_all(root_, ignored);
}

std::string ProgramSandbox::environment() const {
  const std::string root = root_.string();
  return "OMBRINE_CONTAINER='" + root + "/group' XDG_CACHE_HOME='" + root + "/cache' XDG_CONFIG_HOME='" + root +
         "/config' XDG_DATA_HOME='" + root + "/data' OMBRINE_SYNC_DIR='" + root + "/sync' XDG_RUNTIME_DIR='" + root +
         "/runtime'";
}

ProgramRun ProgramSandbox::run(const std::string& program, const std::string& arguments,
                               const std::string& extraEnvironment) const {
  const std::filesystem::path errFile = root_ / ("stderr-" + std::to_string(::getpid()));
  const std::string command = "env -u DBUS_SESSION_BUS_ADDRESS " + environment() + " NO_COLOR=1 " + extraEnvironment +
                              " " + program + " " + arguments + " 2>'" + errFile.string() + "'";
  ProgramRun run;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return run;
  std::array<char, 4096> buffer;
  std::size_t n;
  while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) run.out.append(buffer.data(), n);
  const int status = ::pclose(pipe);
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.err = readTextFile(errFile);
  std::error_code ignored;
  std::filesystem::remove(errFile, ignored);
  return run;
}

std::string readTextFile(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace ombrine
