#include "commands.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <limits>
#include <stdexcept>
#include <utility>

#include "command_line/words.h"

namespace korvane::emulator {

namespace {

/** Invalid arguments of a command. */
struct UsageError : std::invalid_argument {
  using std::invalid_argument::invalid_argument;
};

using Run = std::function<void(Service &, const Words &, const Respond &)>;

struct Argument {
  std::string shown;     ///< as shown in the help, in brackets when optional
  Words choices = {};    ///< possible values; empty when they are not a list
  bool is_open = false;  ///< whether other values are valid, too
};

struct Command {
  std::string name;
  std::vector<Argument> arguments;
  const char *help;
  std::size_t least;  ///< the least number of arguments
  std::size_t most;
  Run run;
};

constexpr std::size_t kAnyNumber = std::numeric_limits<std::size_t>::max();

/** A command that is complete when its action returns. The output is the text that it returns. */
template <typename Action>
Run at_once(Action action) {
  return [action](Service &service, const Words &arguments, const Respond &respond) {
    respond({Outcome::kOk, action(service, arguments)});
  };
}

/** A command without output, which sets a fault or causes an event. */
template <typename Action>
Run silently(Action action) {
  return at_once([action](Service &service, const Words &arguments) {
    action(service, arguments);
    return std::string();
  });
}

/** A signed or unsigned 32-bit number, decimal or hexadecimal with 0x. */
std::int32_t parse_number(const std::string &text) {
  std::size_t used = 0;
  long long value = 0;
  try {
    value = std::stoll(text, &used, 0);
  } catch (const std::exception &) {
    used = 0;
  }
  if (used == 0 || used != text.size() || value < std::numeric_limits<std::int32_t>::min() ||
      value > std::numeric_limits<std::uint32_t>::max()) {
    throw UsageError("\"" + text + "\" is no 32-bit number");
  }
  return static_cast<std::int32_t>(value);
}

int parse_count(const std::string &text) {
  const std::int32_t count = parse_number(text);
  if (count < 1 || count > 1000000) throw UsageError("\"" + text + "\" is no count");
  return count;
}

void check_choice(const std::string &word, const Words &choices) {
  if (std::find(choices.begin(), choices.end(), word) != choices.end()) return;
  throw UsageError(
      "unknown word \"" + word + "\"" +
      command_line::suggestion(word, choices, "; choose one of " + command_line::listed(choices)));
}

template <typename Row>
Words names_of(const std::vector<Row> &rows) {
  Words names;
  for (const Row &row : rows) names.emplace_back(row.name);
  return names;
}

/** The row of a table with this name. */
template <typename Row>
const Row &row_of(const std::vector<Row> &rows, const std::string &name) {
  check_choice(name, names_of(rows));
  return *std::find_if(rows.begin(), rows.end(), [&](const Row &row) { return row.name == name; });
}

Argument one_of(const Words &choices) {
  std::string shown;
  for (const std::string &choice : choices) shown += (shown.empty() ? "" : "|") + choice;
  return {shown, choices};
}

/** The name of a method, or one of the given words. */
Argument method_or(const std::string &shown, const Words &others = {}) {
  Words choices = names_of(methods());
  choices.insert(choices.end(), others.begin(), others.end());
  return {shown, choices};
}

host::EventBundle::Bytes parse_hex(const std::string &text) {
  const auto is_digit = [](unsigned char letter) { return std::isxdigit(letter) != 0; };
  if (text.size() % 2 != 0 || !std::all_of(text.begin(), text.end(), is_digit)) {
    throw UsageError("\"" + text + "\" is no row of hexadecimal bytes");
  }
  host::EventBundle::Bytes bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

std::vector<std::string> split(const std::string &text) {
  std::vector<std::string> parts;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    parts.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

/** KEY=TYPE:VALUE */
EventPayload::value_type parse_entry(const std::string &text) {
  using Value = host::EventBundle::Value;
  struct Type {
    std::string name;
    std::function<Value(const std::string &)> parse;
  };
  const std::vector<Type> types = {
      {"str", [](const std::string &value) { return value; }},
      {"array", split},
      {"int32", [](const std::string &value) { return code_bytes(parse_number(value)); }},
      {"bytes", parse_hex},
  };
  const std::size_t equals = text.find('=');
  const std::size_t colon = text.find(':', std::min(equals, text.size()));
  if (colon == std::string::npos) throw UsageError("\"" + text + "\" is no KEY=TYPE:VALUE");
  const std::string type = text.substr(equals + 1, colon - equals - 1);
  return {text.substr(0, equals), row_of(types, type).parse(text.substr(colon + 1))};
}

void publish_event(Service &service, const Words &words) {
  EventPayload payload;
  for (auto word = words.begin() + 1; word != words.end(); ++word) {
    payload.push_back(parse_entry(*word));
  }
  service.events().publish(words[0], payload);
}

void set_reply(Service &service, const Words &words) {
  const MethodInfo &info = row_of(methods(), words[0]);
  if (info.method == Method::kGetLicense) {
    throw UsageError("get_license answers with a text: use license TEXT");
  }
  if (words[1] == "default") {
    service.faults().replies.erase(info.method);
  } else {
    service.faults().replies[info.method] = parse_number(words[1]);
  }
}

void set_crash(Service &service, const Words &words) {
  Faults &faults = service.faults();
  if (words.empty()) {
    faults.crash_at_any = true;
  } else {
    faults.crash_at.insert(row_of(methods(), words[0]).method);
  }
}

void set_silence(Service &service, const Words &words) {
  if (words[0] == "off") {
    service.faults().silent.clear();
  } else {
    service.faults().silent.insert(row_of(methods(), words[0]).method);
  }
}

void send_garbage(Service &service, const Words &words) {
  const host::Port port = words[0] == "main" ? host::Port::kMain : host::Port::kCallback;
  service.port().send_garbage(port, row_of(garbage_kinds(), words[1]).bytes);
}

/** Answers the command once the service manager is back, with the problem if there was one. */
Service::Back when_back(const Respond &respond) {
  return [respond](const std::string &problem) {
    respond({problem.empty() ? Outcome::kOk : Outcome::kRefused, problem});
  };
}

void update_itself(Service &service, const Words &words, const Respond &respond) {
  int rounds = 1;
  if (!words.empty()) {
    if (words[0] != "--count" || words.size() != 2) throw UsageError("use update --count N");
    rounds = parse_count(words[1]);
  }
  service.update_itself(rounds, when_back(respond));
}

void restart(Service &service, const Words &, const Respond &respond) {
  service.restart(when_back(respond));
}

void stop(Service &service, const Words &, const Respond &respond) {
  service.stop();
  respond({Outcome::kOk, "", true});
}

/** A command that sets a number for one use. */
Run once(std::optional<std::int32_t> Faults::*code) {
  return silently([code](Service &service, const Words &words) {
    service.faults().*code = parse_number(words[0]);
  });
}

Command define(const char *name, std::vector<Argument> arguments, const char *help,
               std::size_t least, std::size_t most, Run run) {
  return {name, std::move(arguments), help, least, most, std::move(run)};
}

std::vector<Command> make_commands() {
  return {
      define("status", {}, "show the state of the emulator, as JSON", 0, 0,
             at_once([](Service &service, const Words &) { return to_text(service.status(), 2); })),
      define("stop", {}, "stop the emulator, and wait until it has exited", 0, 0, stop),
      define("update", {{"[--count", {"--count"}}, {"N]"}},
             "update the service manager: announce \"Update\", drop connections, listen again, "
             "announce \"Launch\"",
             0, 2, update_itself),
      define("restart", {},
             "drop all connections without an announcement, listen again, announce \"Launch\"", 0,
             0, restart),
      define("announce", {one_of({"Update", "Launch"})},
             "publish this agent status, and nothing else", 1, 1,
             silently([](Service &service, const Words &words) { service.announce(words[0]); })),
      define(
          "event", {one_of({kUpdateStatus, kModelStatus, kAgentStatus}), {"[KEY=TYPE:VALUE...]"}},
          "publish any event; TYPE is str, array (comma-separated), int32 or bytes (hexadecimal)",
          1, kAnyNumber, silently(publish_event)),
      define("reset", {}, "end all faults and restore the licence text", 0, 0,
             silently([](Service &service, const Words &) { service.reset(); })),
      define("drop", {}, "drop all connections", 0, 0,
             silently([](Service &service, const Words &) { service.port().drop_connections(); })),
      define("reject", {one_of({"on", "off"})}, "refuse new connections", 1, 1,
             silently([](Service &service, const Words &words) {
               service.faults().reject = words[0] == "on";
             })),
      define("license", {{"TEXT"}}, "change the licence text", 1, 1,
             silently([](Service &service, const Words &words) {
               service.state().set_license(words[0]);
             })),
      define("reply", {method_or("METHOD"), {"CODE|default", {"default"}, true}},
             "answer every request of a method with this code or result number", 2, 2,
             silently(set_reply)),
      define("silent", {method_or("METHOD|off", {"off"})},
             "do not answer this method; off: answer all methods again", 1, 1,
             silently(set_silence)),
      define("crash-before-reply", {method_or("[METHOD]")},
             "crash at the next request, or at the next one of this method", 0, 1,
             silently(set_crash)),
      define("stray", {{"COUNT"}},
             "send this number of parcels that are not results before the next synchronous reply",
             1, 1, silently([](Service &service, const Words &words) {
               service.faults().stray_parcels = parse_count(words[0]);
             })),
      define("garbage", {one_of({"main", "callback"}), one_of(names_of(garbage_kinds()))},
             "send bytes that are not a parcel on this port of every connection", 2, 2,
             silently(send_garbage)),
      define("delegate-fault", {one_of(names_of(delegate_faults()))},
             "corrupt the next asynchronous answer", 1, 1,
             silently([](Service &service, const Words &words) {
               service.faults().delegate_fault = &row_of(delegate_faults(), words[0]);
             })),
      define("fail-update", {{"CODE"}}, "the next update of agents fails with this code", 1, 1,
             once(&Faults::update_failure)),
      define("own", {{"CODE"}}, "the next update of agents reports this result to its requester", 1,
             1, once(&Faults::own_result)),
      define("fail-models", {{"CODE"}},
             "the next update or uninstallation of models fails with this result number", 1, 1,
             once(&Faults::model_failure)),
  };
}

const std::vector<Command> &commands() {
  static const std::vector<Command> table = make_commands();
  return table;
}

std::string synopsis(const Command &command) {
  std::string text = command.name;
  for (const Argument &argument : command.arguments) text += " " + argument.shown;
  return text;
}

std::string help(const Command &command) {
  return "  " + synopsis(command) + "\n        " + command.help + "\n";
}

/** Throws UsageError for invalid arguments. */
const Command &parse_command(const Words &words) {
  if (words.empty()) {
    throw UsageError("no command; choose one of " + command_line::listed(next_words({})));
  }
  const Command &command = row_of(commands(), words[0]);
  const std::size_t count = words.size() - 1;
  if (count < command.least || count > command.most) {
    throw UsageError("use " + synopsis(command));
  }
  for (std::size_t i = 0; i < std::min(count, command.arguments.size()); ++i) {
    const Argument &argument = command.arguments[i];
    if (!argument.choices.empty() && !argument.is_open) {
      check_choice(words[i + 1], argument.choices);
    }
  }
  return command;
}

}  // namespace

std::string commands_help() {
  std::string text = "Commands:\n";
  for (const Command &command : commands()) text += help(command);
  text += "\nMethods:\n ";
  for (const std::string &name : names_of(methods())) text += " " + name;
  return text + "\n";
}

std::optional<std::string> command_help(const std::string &name) {
  for (const Command &command : commands()) {
    if (name == command.name) return help(command);
  }
  return std::nullopt;
}

Words next_words(const Words &words) {
  if (words.empty()) return names_of(commands());
  for (const Command &command : commands()) {
    if (words[0] != command.name) continue;
    const std::size_t index = words.size() - 1;
    return index < command.arguments.size() ? command.arguments[index].choices : Words();
  }
  return {};
}

std::optional<std::string> usage_error(const Words &words) {
  try {
    parse_command(words);
    return std::nullopt;
  } catch (const UsageError &error) {
    return error.what();
  }
}

void execute_command(Service &service, const Words &words, const Respond &respond) {
  try {
    const Command &command = parse_command(words);
    command.run(service, Words(words.begin() + 1, words.end()), respond);
  } catch (const UsageError &error) {
    respond({Outcome::kUsage, error.what()});
  } catch (const std::exception &error) {
    respond({Outcome::kRefused, error.what()});
  }
}

}  // namespace korvane::emulator
