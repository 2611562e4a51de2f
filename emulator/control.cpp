#include "control.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "json_file.h"
#include "sockets/local_socket.h"

namespace korvane::emulator {

namespace {

/** The time limit for a client to send its command and to read the answer. */
constexpr std::chrono::seconds kPatience(5);
constexpr int kRequestStallMs = 10000;
constexpr int kNoLimit = -1;

host::Bytes bytes_of(const Json &document) {
  const std::string text = to_text(document);
  return {text.begin(), text.end()};
}

/** Throws std::runtime_error when the bytes are not JSON. */
Json parse(const host::Bytes &bytes) {
  return parse_json({bytes.begin(), bytes.end()});
}

/** Throws std::runtime_error when the bytes are not a command. */
Words parse_words(const host::Bytes &bytes) {
  const Json document = parse(bytes);
  Words words;
  for (const Json &word : document) {
    if (!document.is_array() || !word.is_string()) throw std::runtime_error("no array of words");
    words.push_back(word.get<std::string>());
  }
  return words;
}

/** Throws std::runtime_error when the bytes are not an outcome. */
Outcome parse_outcome(const host::Bytes &bytes) {
  const Json document = parse(bytes);
  try {
    return {document.at("status").get<Outcome::Status>(), document.at("text").get<std::string>(),
            document.at("is_last").get<bool>()};
  } catch (const Json::exception &error) {
    throw std::runtime_error(error.what());
  }
}

/** A descriptor for the peer process; it stays valid when the kernel reuses the process ID. */
host::UniqueFd process_of(const host::UniqueFd &socket) {
  return host::UniqueFd(
      static_cast<int>(syscall(SYS_pidfd_open, host::peer_process(socket.get()), 0)));
}

/** Waits until the process of the descriptor has ended. */
void await_end(const host::UniqueFd &process) {
  pollfd entry = {process.get(), POLLIN, 0};
  while (poll(&entry, 1, kNoLimit) < 0 && errno == EINTR) {
  }
}

}  // namespace

ControlServer::ControlServer(host::MainLoop &loop, const std::filesystem::path &path,
                             Execute execute)
    : loop_(loop),
      execute_(std::move(execute)),
      listener_(loop, path, [this](host::UniqueFd socket) { accept(std::move(socket)); }) {}

ControlServer::~ControlServer() {
  while (!callers_.empty()) forget(callers_.begin()->first);
}

void ControlServer::accept(host::UniqueFd socket) {
  const std::uint64_t id = next_caller_++;
  const int descriptor = socket.get();
  callers_[id].socket = std::move(socket);
  be_patient(id);
  callers_[id].source = loop_.add_descriptor(
      descriptor, EPOLLIN, [this, id](std::uint32_t epoll_events) { serve(id, epoll_events); });
}

void ControlServer::serve(std::uint64_t id, std::uint32_t epoll_events) {
  Caller &caller = callers_.at(id);
  if (epoll_events == EPOLLOUT) {
    send_answer(id);
    return;
  }
  const host::ReadState state = host::read_available(caller.socket.get(), caller.reader);
  const bool says_more = caller.has_asked && state == host::ReadState::kData;
  if (state == host::ReadState::kEnd || says_more) {
    forget(id);
  } else if (const auto request = caller.reader.next()) {
    execute(id, *request);
  }
}

void ControlServer::execute(std::uint64_t id, const host::Bytes &request) {
  Caller &caller = callers_.at(id);
  caller.has_asked = true;
  caller.patience.reset();
  try {
    execute_(parse_words(request), [this, id](const Outcome &outcome) { respond(id, outcome); });
  } catch (const std::exception &error) {
    respond(id, {Outcome::kRefused, error.what()});
  }
}

void ControlServer::respond(std::uint64_t id, const Outcome &outcome) {
  const auto entry = callers_.find(id);
  if (entry == callers_.end()) return;
  const auto encode = [](const Outcome &answer) {
    return bytes_of(
        {{"status", answer.status}, {"text", answer.text}, {"is_last", answer.is_last}});
  };
  host::Bytes &answer = entry->second.answer;
  if (!host::append_frame(answer, encode(outcome))) {
    host::append_frame(answer, encode({Outcome::kRefused, "the answer is too long"}));
  }
  be_patient(id);
  send_answer(id);
}

void ControlServer::send_answer(std::uint64_t id) {
  Caller &caller = callers_.at(id);
  host::send_available(caller.socket.get(), caller.answer);
  if (caller.answer.empty()) {
    forget(id);
  } else {
    loop_.change_events(caller.source, EPOLLOUT);
  }
}

void ControlServer::be_patient(std::uint64_t id) {
  callers_.at(id).patience = host::ScopedTimer(loop_, kPatience, [this, id] { forget(id); });
}

void ControlServer::forget(std::uint64_t id) {
  loop_.remove(callers_.at(id).source);
  callers_.erase(id);
}

Outcome send_command(const std::filesystem::path &path, const Words &words) {
  host::Bytes request;
  if (!host::append_frame(request, bytes_of(words))) {
    return {Outcome::kRefused, "the command is too long"};
  }
  host::UniqueFd socket;
  try {
    socket = host::connect_to(path);
  } catch (const std::system_error &) {
    const std::string device = path.parent_path().parent_path().string();
    return {Outcome::kRefused, "no emulator runs on " + device +
                                   "; start one with \"svcmgr-emulator --device " + device + "\""};
  }
  const host::UniqueFd emulator = process_of(socket);
  host::FrameReader reader;
  std::optional<host::Bytes> answer;
  if (host::write_all(socket.get(), request, kRequestStallMs) == 0) {
    answer = host::read_frame(socket.get(), reader, kNoLimit);
  }
  if (!answer) return {Outcome::kRefused, "the emulator ended before it answered"};
  Outcome outcome = parse_outcome(*answer);
  if (outcome.is_last && emulator) await_end(emulator);
  return outcome;
}

}  // namespace korvane::emulator
