#include "control.h"

#include <sys/epoll.h>

#include <system_error>
#include <utility>

#include "json_file.h"
#include "local_socket.h"

namespace korvane::emulator {

namespace {

/** How long a caller may leave its answer unread before it is dropped. */
constexpr int kAnswerStallMs = 100;
constexpr int kRequestStallMs = 10000;
constexpr int kNoLimit = -1;

host::Bytes frame_of(const Json &document) {
  const std::string text = to_text(document);
  host::Bytes frame;
  host::append_frame(frame, host::Bytes(text.begin(), text.end()));
  return frame;
}

/** Null when the bytes are no JSON. */
Json parse(const host::Bytes &bytes) {
  const Json document = Json::parse(bytes, nullptr, false);
  return document.is_discarded() ? Json() : document;
}

}  // namespace

ControlServer::ControlServer(host::MainLoop &loop, std::filesystem::path path, Execute execute)
    : loop_(loop),
      path_(std::move(path)),
      execute_(std::move(execute)),
      listener_(host::listen_at(path_)),
      listener_source_(loop_.add_descriptor(listener_.get(), EPOLLIN,
                                            [this](std::uint32_t) { accept_caller(); })) {}

ControlServer::~ControlServer() {
  loop_.remove(listener_source_);
  while (!callers_.empty()) forget(callers_.begin()->first);
  std::error_code ignored;
  std::filesystem::remove(path_, ignored);
}

void ControlServer::accept_caller() {
  host::UniqueFd socket = host::accept_peer(listener_.get());
  if (!socket) return;
  const std::uint64_t id = next_caller_++;
  Caller &caller = callers_[id];
  caller.socket = std::move(socket);
  caller.source =
      loop_.add_descriptor(caller.socket.get(), EPOLLIN, [this, id](std::uint32_t) { read(id); });
}

void ControlServer::read(std::uint64_t id) {
  Caller &caller = callers_.at(id);
  const host::ReadState state = host::read_available(caller.socket.get(), caller.reader);
  const auto frame = caller.reader.next();
  if (state == host::ReadState::kEnd) {
    forget(id);
  } else if (frame && !std::exchange(caller.has_asked, true)) {
    Words words;
    for (const Json &word : parse(*frame)) {
      if (word.is_string()) words.push_back(word.get<std::string>());
    }
    execute_(words, [this, id](const Outcome &outcome) { respond(id, outcome); });
  }
}

void ControlServer::respond(std::uint64_t id, const Outcome &outcome) {
  const auto caller = callers_.find(id);
  if (caller == callers_.end()) return;
  const host::Bytes frame = frame_of({{"status", outcome.status}, {"text", outcome.text}});
  host::write_all(caller->second.socket.get(), frame, kAnswerStallMs);
  forget(id);
}

void ControlServer::forget(std::uint64_t id) {
  loop_.remove(callers_.at(id).source);
  callers_.erase(id);
}

Outcome send_command(const std::filesystem::path &path, const Words &words) {
  host::UniqueFd socket;
  try {
    socket = host::connect_to(path);
  } catch (const std::system_error &) {
    return {Outcome::kRefused, "no emulator listens at " + path.string()};
  }
  host::FrameReader reader;
  if (host::write_all(socket.get(), frame_of(words), kRequestStallMs) == 0) {
    if (const auto frame = host::read_frame(socket.get(), reader, kNoLimit)) {
      const Json answer = parse(*frame);
      if (answer.is_object()) {
        return {answer.value("status", Outcome::kRefused), answer.value("text", "")};
      }
    }
  }
  return {Outcome::kRefused, "the emulator ended before it answered"};
}

}  // namespace korvane::emulator
