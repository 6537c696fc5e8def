#include "packaging/command_docs.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace ombrine::packaging {
namespace {

// A program shaped like ours: global options that fall through, a command with a positional,
// a nested command, and a hidden option that must appear nowhere.
struct Program {
  CLI::App app{"prog: does things", "prog"};
  std::string services, place, secret;
  bool json = false;
  Program() {
    app.fallthrough();
    app.add_option("--services", services, "Where requests go")->check(CLI::IsMember({"real", "sim"}));
    auto* forecast = app.add_subcommand("forecast", ".dot at the start, and a back\\slash");
    forecast->add_option("place", place, "A place name");
    forecast->add_flag("--json", json, "Print JSON");
    forecast->add_option("--secret", secret, "hidden")->group("");
    auto* trips = app.add_subcommand("trips", "Trips");
    trips->add_subcommand("forecast", "Forecast of a trip");
  }
};

const ManPage* page(const std::vector<ManPage>& pages, const std::string& name) {
  const auto found = std::find_if(pages.begin(), pages.end(), [&](const ManPage& p) { return p.fileName == name; });
  return found == pages.end() ? nullptr : &*found;
}

TEST(CommandDocs, ManPagesCoverEveryCommandWithInheritedOptionsAndEscapedText) {
  Program program;
  const auto pages = manPages(program.app, "9.9");
  ASSERT_EQ(pages.size(), 4u);
  struct Case {
    std::string file;
    std::vector<std::string> present;
    std::vector<std::string> absent;
  };
  const std::vector<Case> cases = {
      {"prog.1", {".TH PROG 1", "\\fBprog\\-forecast\\fR(1)", "\\fB\\-\\-services\\fR \\fITEXT"}, {"\\-\\-json"}},
      // the global option reaches the command through fallthrough; hidden options never show
      {"prog-forecast.1",
       {"\\fB\\-\\-json\\fR", "\\-\\-services", "\\fIplace\\fR", "\\&.dot at the start", "back\\eslash",
        "\"prog 9.9\""},
       {"secret", "\n.dot"}},
      {"prog-trips-forecast.1", {".B prog trips forecast", "\\fBprog\\-trips\\fR(1)", "\\-\\-services"}, {}},
  };
  for (const auto& c : cases) {
    const ManPage* found = page(pages, c.file);
    ASSERT_NE(found, nullptr) << c.file;
    for (const auto& text : c.present) EXPECT_NE(found->text.find(text), std::string::npos) << c.file << ": " << text;
    for (const auto& text : c.absent) EXPECT_EQ(found->text.find(text), std::string::npos) << c.file << ": " << text;
  }
}

TEST(CommandDocs, CompletionsKnowCommandsOptionsAndChoicesPerCommandPath) {
  Program program;
  const std::string bash = bashCompletion(program.app);
  const std::string zsh = zshCompletion(program.app);
  for (const std::string* script : {&bash, &zsh}) {
    EXPECT_NE(script->find("'/commands') printf '%s\\n' 'forecast' 'trips' ;;"), std::string::npos) << *script;
    EXPECT_NE(script->find("'trips/commands') printf '%s\\n' 'forecast' ;;"), std::string::npos);
    EXPECT_NE(script->find("'/--services') printf '%s\\n' 'real' 'sim' ;;"), std::string::npos);
    EXPECT_NE(script->find("'forecast/valued') printf '%s\\n' '--services' ;;"), std::string::npos);
    EXPECT_EQ(script->find("secret"), std::string::npos);
  }
  EXPECT_EQ(zsh.rfind("#compdef prog\n", 0), 0u);
  const std::string fish = fishCompletion(program.app);
  EXPECT_NE(fish.find("complete -c prog -n '__prog_at \\'trips\\'' -a 'forecast' -d 'Forecast of a trip'"),
            std::string::npos)
      << fish;
  EXPECT_NE(fish.find("-l 'services' -r -a 'real sim'"), std::string::npos);
  EXPECT_NE(fish.find("complete -c prog -n '__prog_at \\'forecast\\'' -l 'json' -d 'Print JSON'"), std::string::npos);
}

}  // namespace
}  // namespace ombrine::packaging
