// `ombrine radar PLACE -o FILE` run as a user runs it, against the embedded simulator.

#include <gtest/gtest.h>

#include "core/values/value_json.hpp"
#include "platform/testing/program_sandbox.hpp"

namespace ombrine {
namespace {

TEST(RadarImageCommand, WritesPicturesAndRefusesBadUsage) {
  struct Row {
    const char* name;
    const char* arguments;  // the output file is FILE in the sandbox
    const char* faults;
    int exitCode;
    const char* magic;  // the file's first bytes, empty: no file
    const char* err;    // part of stderr
  };
  const std::vector<Row> rows = {
      {"still picture with tile states", "radar --at 48.14,11.58 --zoom 3 --size 200x200 --json -o FILE.png", "", 0,
       "\x89PNG", "Loading tiles"},
      {"no tile loads", "radar Munich --zoom 3 --size 200x200 -o FILE.png", "rainviewer.tile=status=404", 1, "\x89PNG",
       "no tile could be loaded"},
      {"loop needs a gif", "radar Munich --loop -o FILE.png", "", 2, "", "--loop writes an animated GIF"},
      {"no output", "radar Munich", "", 2, "", "-o FILE.png"},
      {"bad size", "radar Munich --size 10x10 -o FILE.png", "", 2, "", "--size"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    ProgramSandbox sandbox("ombrine-radar-image");
    std::string arguments = row.arguments;
    const std::string file = (sandbox.root() / "picture").string();
    if (const auto at = arguments.find("FILE"); at != std::string::npos) arguments.replace(at, 4, file);
    const ProgramRun run = sandbox.runSimulated(OMBRINE_PROGRAM, arguments, row.faults);
    EXPECT_EQ(run.exitCode, row.exitCode) << run.err;
    EXPECT_NE(run.err.find(row.err), std::string::npos) << run.err;
    const std::string written = readTextFile(file + ".png");
    EXPECT_TRUE(written.starts_with(row.magic)) << written.size();
    if (std::string(row.arguments).find("--json") == std::string::npos) continue;
    const auto document = parseJson(run.out);
    const auto& frames = document.at("frames").as_array();
    EXPECT_EQ(frames.size(), 1u);
    for (const auto& frame : frames) {
      EXPECT_TRUE(frame.at("complete").as_bool());
      for (const auto& tile : frame.at("tiles").as_array()) EXPECT_EQ(tile.at("state").as_string(), "network");
    }
  }
}

}  // namespace
}  // namespace ombrine
