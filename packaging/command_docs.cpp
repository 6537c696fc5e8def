#include "packaging/command_docs.hpp"

#include <algorithm>
#include <fstream>
#include <set>

#include <fmt/format.h>

namespace ombrine::packaging {

namespace {

// A visible command with the path that names it and every option it accepts: its own, then
// those that fall through from the commands above it.
struct Command {
  std::vector<std::string> path;  // empty for the program itself
  const CLI::App* app = nullptr;
  std::vector<const CLI::Option*> options;
  std::vector<const CLI::Option*> positionals;
  std::vector<const CLI::App*> commands;
};

bool visible(const CLI::Option* option) { return !option->get_group().empty(); }

std::vector<std::string> optionWords(const CLI::Option* option) {
  std::vector<std::string> words;
  for (const auto& name : option->get_snames()) words.push_back("-" + name);
  for (const auto& name : option->get_lnames()) words.push_back("--" + name);
  return words;
}

// A flag expects no value.
bool takesValue(const CLI::Option* option) { return option->get_items_expected_max() > 0; }

// The choices a value is checked against ("{real,sim}" in the type name), if any.
std::vector<std::string> choicesOf(const CLI::Option* option) {
  const std::string type = option->get_type_name();
  const auto open = type.find('{');
  const auto close = type.find('}', open);
  std::vector<std::string> choices;
  if (open == std::string::npos || close == std::string::npos) return choices;
  std::string rest = type.substr(open + 1, close - open - 1);
  for (std::size_t start = 0; start <= rest.size();) {
    const auto comma = std::min(rest.find(',', start), rest.size());
    if (comma > start) choices.push_back(rest.substr(start, comma - start));
    start = comma + 1;
  }
  return choices;
}

void collect(const CLI::App& app, std::vector<std::string> path, std::vector<const CLI::Option*> inherited,
             std::vector<Command>& out) {
  Command command{path, &app, {}, {}, {}};
  std::set<std::string> seen;
  for (const CLI::Option* option : app.get_options()) {
    if (!visible(option)) continue;
    if (!option->nonpositional()) {
      command.positionals.push_back(option);
      continue;
    }
    command.options.push_back(option);
    for (const auto& word : optionWords(option)) seen.insert(word);
  }
  for (const CLI::Option* option : inherited) {
    const auto words = optionWords(option);
    if (std::none_of(words.begin(), words.end(), [&](const std::string& w) { return seen.count(w) > 0; })) {
      command.options.push_back(option);
    }
  }
  command.commands = app.get_subcommands([](const CLI::App* sub) { return !sub->get_group().empty(); });
  // Options reach the subcommands only through a command that falls through.
  const auto passedOn = app.get_fallthrough() ? command.options : std::vector<const CLI::Option*>{};
  out.push_back(command);
  for (const CLI::App* sub : command.commands) {
    auto subPath = path;
    subPath.push_back(sub->get_name());
    collect(*sub, subPath, passedOn, out);
  }
}

std::vector<Command> commandsOf(const CLI::App& program) {
  std::vector<Command> commands;
  collect(program, {}, {}, commands);
  return commands;
}

std::string joined(const std::vector<std::string>& words, std::string_view separator) {
  std::string out;
  for (const auto& word : words) out += (out.empty() ? "" : std::string(separator)) + word;
  return out;
}

// ---- man pages

// Text in a roff line: backslashes and hyphens escaped, a control character at a line start
// made plain.
std::string roff(std::string_view text) {
  std::string out;
  bool lineStart = true;
  for (const char c : text) {
    if (lineStart && (c == '.' || c == '\'')) out += "\\&";
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      out += c;
    }
    lineStart = c == '\n';
  }
  return out;
}

std::string pageName(const std::string& programName, const std::vector<std::string>& path) {
  return joined(path.empty() ? std::vector<std::string>{programName}
                             : [&] {
                                 auto words = path;
                                 words.insert(words.begin(), programName);
                                 return words;
                               }(),
                "-");
}

std::string upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

std::string optionHeading(const CLI::Option* option) {
  std::string heading;
  for (const auto& word : optionWords(option))
    heading += (heading.empty() ? "" : ", ") + ("\\fB" + roff(word) + "\\fR");
  // The value as --help shows it.
  std::string value = option->get_option_text();
  if (value.empty() && takesValue(option)) {
    value = option->get_type_name();
    if (!option->get_default_str().empty()) value += "=" + option->get_default_str();
    if (option->get_expected_max() == CLI::detail::expected_max_vector_size) value += " ...";
  }
  if (!value.empty()) heading += " \\fI" + roff(value) + "\\fR";
  return heading;
}

ManPage manPage(const std::string& programName, const Command& command, const std::string& version) {
  const std::string name = pageName(programName, command.path);
  const std::string invocation = joined(
      [&] {
        auto words = command.path;
        words.insert(words.begin(), programName);
        return words;
      }(),
      " ");
  std::string page =
      fmt::format(".TH {} 1 \"\" \"{} {}\" \"User Commands\"\n", upper(name), roff(programName), roff(version));
  page += ".SH NAME\n" + roff(name) + " \\- " + roff(command.app->get_description()) + "\n";
  page += ".SH SYNOPSIS\n.B " + roff(invocation) + "\n";
  if (!command.options.empty()) page += "[\\fIOPTIONS\\fR]";
  for (const CLI::Option* positional : command.positionals) {
    const std::string word = "\\fI" + roff(positional->get_name(true)) + "\\fR";
    page += " " + (positional->get_required() ? word : "[" + word + "]");
  }
  if (!command.commands.empty()) page += " \\fICOMMAND\\fR";
  page += "\n.SH DESCRIPTION\n" + roff(command.app->get_description()) + "\n";
  if (const auto footer = command.app->get_footer(); !footer.empty() && footer != "\n") {
    page += ".PP\n" + roff(footer) + "\n";
  }
  if (!command.commands.empty()) {
    page += ".SH COMMANDS\n";
    for (const CLI::App* sub : command.commands) {
      auto subPath = command.path;
      subPath.push_back(sub->get_name());
      page += ".TP\n\\fB" + roff(sub->get_name()) + "\\fR\n" + roff(sub->get_description()) + " (see \\fB" +
              roff(pageName(programName, subPath)) + "\\fR(1))\n";
    }
  }
  if (!command.positionals.empty()) {
    page += ".SH ARGUMENTS\n";
    for (const CLI::Option* positional : command.positionals) {
      page += ".TP\n\\fI" + roff(positional->get_name(true)) + "\\fR\n" + roff(positional->get_description()) + "\n";
    }
  }
  if (!command.options.empty()) {
    page += ".SH OPTIONS\n";
    for (const CLI::Option* option : command.options) {
      page += ".TP\n" + optionHeading(option) + "\n" + roff(option->get_description()) + "\n";
    }
  }
  page += ".SH SEE ALSO\n";
  if (command.path.empty()) {
    std::vector<std::string> refs;
    for (const CLI::App* sub : command.commands)
      refs.push_back("\\fB" + roff(pageName(programName, {sub->get_name()})) + "\\fR(1)");
    page += joined(refs, ",\n") + "\n";
  } else {
    auto parent = command.path;
    parent.pop_back();
    page += "\\fB" + roff(pageName(programName, parent)) + "\\fR(1)\n";
  }
  return ManPage{name + ".1", page};
}

// ---- completions

// A word inside single quotes of bash and zsh.
std::string shellQuoted(std::string_view text) {
  std::string out = "'";
  for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

// A word inside single quotes of fish.
std::string fishQuoted(std::string_view text) {
  std::string out = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') out += '\\';
    out += c;
  }
  return out + "'";
}

// The word lists each shell's completer reads, as one shell function
// `NAME_words PATH KIND` printing one word a line. KIND: "commands", "options", "valued" (the
// options that take a value) or an option word (its choices). `fish` picks fish syntax.
std::string wordsFunction(const std::string& name, const std::vector<Command>& commands, bool fish) {
  std::string cases;
  const auto addCase = [&](const std::string& key, const std::vector<std::string>& words) {
    if (words.empty()) return;
    std::string quoted;
    for (const auto& word : words) quoted += " " + (fish ? fishQuoted(word) : shellQuoted(word));
    cases += fish ? fmt::format("        case {}\n            printf '%s\\n'{}\n", fishQuoted(key), quoted)
                  : fmt::format("    {}) printf '%s\\n'{} ;;\n", shellQuoted(key), quoted);
  };
  for (const Command& command : commands) {
    const std::string path = joined(command.path, " ");
    std::vector<std::string> subcommands, options, valued;
    for (const CLI::App* sub : command.commands) subcommands.push_back(sub->get_name());
    for (const CLI::Option* option : command.options) {
      const auto words = optionWords(option);
      options.insert(options.end(), words.begin(), words.end());
      if (!takesValue(option)) continue;
      valued.insert(valued.end(), words.begin(), words.end());
      for (const auto& word : words) addCase(path + "/" + word, choicesOf(option));
    }
    addCase(path + "/commands", subcommands);
    addCase(path + "/options", options);
    addCase(path + "/valued", valued);
  }
  if (fish) return fmt::format("function {}_words\n    switch \"$argv[1]/$argv[2]\"\n{}    end\nend\n", name, cases);
  return fmt::format("{}_words() {{\n  case \"$1/$2\" in\n{}  esac\n}}\n", name, cases);
}

// The loop shared by bash and zsh: walks the words before the one being completed, skipping
// option values, and leaves the command path in `cmdpath`.
constexpr std::string_view kPathWalk = R"(  local cmdpath="" word skip=0 i
  for ((i = FIRST; i < LAST; i++)); do
    word=${WORDS[i]}
    if ((skip)); then skip=0; continue; fi
    case "$word" in
      -*=*) ;;
      -*) _NAME_words "$cmdpath" valued | grep -qxF -e "$word" && skip=1 ;;
      *) _NAME_words "$cmdpath" commands | grep -qxF -e "$word" && cmdpath="${cmdpath:+$cmdpath }$word" ;;
    esac
  done
)";

std::string pathWalk(const std::string& name, std::string_view first, std::string_view last, std::string_view words) {
  std::string text(kPathWalk);
  const auto replace = [&](std::string_view from, std::string_view to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
      text.replace(at, from.size(), to);
    }
  };
  replace("_NAME", "_" + name);
  replace("FIRST", first);
  replace("LAST", last);
  replace("WORDS", words);
  return text;
}

}  // namespace

std::vector<ManPage> manPages(const CLI::App& program, const std::string& version) {
  std::vector<ManPage> pages;
  for (const Command& command : commandsOf(program)) pages.push_back(manPage(program.get_name(), command, version));
  return pages;
}

std::string bashCompletion(const CLI::App& program) {
  const std::string name = program.get_name();
  return fmt::format(
      "# bash completion for {0}, written from its command definitions\n"
      "{1}\n"
      "_{0}() {{\n"
      "{2}"
      "  local cur=${{COMP_WORDS[COMP_CWORD]}} prev=${{COMP_WORDS[COMP_CWORD-1]}}\n"
      "  # skip: the word before is an option waiting for its value\n"
      "  if ((skip)); then\n"
      "    COMPREPLY=($(compgen -W \"$(_{0}_words \"$cmdpath\" \"$prev\")\" -- \"$cur\"))\n"
      "  elif [[ $cur == -* ]]; then\n"
      "    COMPREPLY=($(compgen -W \"$(_{0}_words \"$cmdpath\" options)\" -- \"$cur\"))\n"
      "  else\n"
      "    COMPREPLY=($(compgen -W \"$(_{0}_words \"$cmdpath\" commands)\" -- \"$cur\"))\n"
      "  fi\n"
      "}}\n"
      "complete -o default -F _{0} {0}\n",
      name, wordsFunction("_" + name, commandsOf(program), false), pathWalk(name, "1", "COMP_CWORD", "COMP_WORDS"));
}

std::string zshCompletion(const CLI::App& program) {
  const std::string name = program.get_name();
  // The file is autoloaded as the function _NAME; its body runs on every completion.
  return fmt::format(
      "#compdef {0}\n"
      "# zsh completion for {0}, written from its command definitions\n"
      "{1}\n"
      "{2}"
      "local cur=${{words[CURRENT]}} prev=${{words[CURRENT-1]}}\n"
      "# skip: the word before is an option waiting for its value\n"
      "if ((skip)); then\n"
      "  local -a choices=(${{(f)\"$(_{0}_words \"$cmdpath\" \"$prev\")\"}})\n"
      "  if ((${{#choices}})); then compadd -- $choices; else _files; fi\n"
      "elif [[ $cur == -* ]]; then\n"
      "  compadd -- ${{(f)\"$(_{0}_words \"$cmdpath\" options)\"}}\n"
      "else\n"
      "  local -a commands=(${{(f)\"$(_{0}_words \"$cmdpath\" commands)\"}})\n"
      "  if ((${{#commands}})); then compadd -- $commands; else _files; fi\n"
      "fi\n",
      name, wordsFunction("_" + name, commandsOf(program), false),
      // zsh arrays count from 1 and words[1] is the program.
      pathWalk(name, "2", "CURRENT", "words"));
}

std::string fishCompletion(const CLI::App& program) {
  const std::string name = program.get_name();
  const auto commands = commandsOf(program);
  std::string out = fmt::format("# fish completion for {0}, written from its command definitions\n{1}\n", name,
                                wordsFunction("__" + name, commands, true));
  out += fmt::format(
      "function __{0}_path\n"
      "    set -l cmdpath\n"
      "    set -l skip 0\n"
      "    set -l tokens (commandline -opc)\n"
      "    set -e tokens[1]\n"
      "    for word in $tokens\n"
      "        if test $skip = 1\n"
      "            set skip 0\n"
      "            continue\n"
      "        end\n"
      "        switch $word\n"
      "            case '-*=*'\n"
      "            case '-*'\n"
      "                contains -- $word (__{0}_words \"$cmdpath\" valued); and set skip 1\n"
      "            case '*'\n"
      "                contains -- $word (__{0}_words \"$cmdpath\" commands); and set -a cmdpath $word\n"
      "        end\n"
      "    end\n"
      "    string join ' ' $cmdpath\n"
      "end\n\n"
      "function __{0}_at\n"
      "    set -l cmdpath (__{0}_path)\n"
      "    test \"$cmdpath\" = \"$argv[1]\"\n"
      "end\n\n"
      "complete -c {0} -f\n",
      name);
  for (const Command& command : commands) {
    const std::string condition = fishQuoted("__" + name + "_at " + fishQuoted(joined(command.path, " ")));
    for (const CLI::App* sub : command.commands) {
      out += fmt::format("complete -c {} -n {} -a {} -d {}\n", name, condition, fishQuoted(sub->get_name()),
                         fishQuoted(sub->get_description()));
    }
    for (const CLI::Option* option : command.options) {
      std::string line = fmt::format("complete -c {} -n {}", name, condition);
      for (const auto& shortName : option->get_snames()) line += " -s " + fishQuoted(shortName);
      for (const auto& longName : option->get_lnames()) line += " -l " + fishQuoted(longName);
      if (takesValue(option)) line += " -r";
      if (const auto choices = choicesOf(option); !choices.empty()) line += " -a " + fishQuoted(joined(choices, " "));
      out += line + " -d " + fishQuoted(option->get_description()) + "\n";
    }
  }
  return out;
}

void writeCommandDocs(const CLI::App& program, const std::string& version, const std::filesystem::path& folder) {
  const auto write = [](const std::filesystem::path& file, const std::string& text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) {
      throw std::filesystem::filesystem_error("cannot write", file, std::make_error_code(std::errc::io_error));
    }
  };
  for (const ManPage& page : manPages(program, version)) write(folder / "man" / "man1" / page.fileName, page.text);
  write(folder / "bash-completion" / program.get_name(), bashCompletion(program));
  write(folder / "zsh" / ("_" + program.get_name()), zshCompletion(program));
  write(folder / "fish" / (program.get_name() + ".fish"), fishCompletion(program));
}

}  // namespace ombrine::packaging
