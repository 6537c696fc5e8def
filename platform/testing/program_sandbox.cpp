#include "platform/testing/program_sandbox.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>

extern char** environ;

namespace ombrine {

ProgramSandbox::ProgramSandbox(const std::string& name) : folder_(name) {
  std::filesystem::create_directories(root() / "runtime");
  std::filesystem::permissions(root() / "runtime", std::filesystem::perms::owner_all);
}

std::string ProgramSandbox::environment() const {
  const std::string root = folder_.path().string();
  return "OMBRINE_CONTAINER='" + root + "/group' XDG_CACHE_HOME='" + root + "/cache' XDG_CONFIG_HOME='" + root +
         "/config' XDG_DATA_HOME='" + root + "/data' OMBRINE_SYNC_DIR='" + root + "/sync' XDG_RUNTIME_DIR='" + root +
         "/runtime'";
}

ProgramRun ProgramSandbox::run(const std::string& program, const std::string& arguments,
                               const std::string& extraEnvironment) const {
  const std::filesystem::path errFile = folder_.path() / ("stderr-" + std::to_string(::getpid()));
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

ProgramRun ProgramSandbox::runSimulated(const std::string& program, const std::string& arguments,
                                        const std::string& faults, const std::string& extraEnvironment) const {
  std::string environment = "LANG=en_US.UTF-8";
  if (!faults.empty()) environment += " OMBRINE_SIM_FAULTS='" + faults + "'";
  return run(program, "--services sim " + arguments, environment + " " + extraEnvironment);
}

pid_t ProgramSandbox::start(const std::string& program, const std::vector<std::string>& arguments,
                            const std::vector<std::string>& extraEnvironment, const std::string& log) const {
  std::vector<std::string> words{program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> env;
  for (char** entry = environ; *entry; ++entry) {
    const std::string text = *entry;
    if (!text.starts_with("DBUS_SESSION_BUS_ADDRESS=") && !text.starts_with("OMBRINE_")) env.push_back(text);
  }
  for (const auto& [name, folder] : {std::pair{"OMBRINE_CONTAINER", "group"},
                                     {"XDG_CACHE_HOME", "cache"},
                                     {"XDG_CONFIG_HOME", "config"},
                                     {"XDG_DATA_HOME", "data"},
                                     {"OMBRINE_SYNC_DIR", "sync"},
                                     {"XDG_RUNTIME_DIR", "runtime"}}) {
    env.push_back(std::string(name) + "=" + (folder_.path() / folder).string());
  }
  env.insert(env.end(), extraEnvironment.begin(), extraEnvironment.end());
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  std::vector<char*> envp;
  for (auto& entry : env) envp.push_back(entry.data());
  envp.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const std::string out = (folder_.path() / (log + ".out")).string();
  const std::string err = (folder_.path() / (log + ".err")).string();
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid = -1;
  if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

int ProgramSandbox::waitForExit(pid_t pid) {
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string readTextFile(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace ombrine
