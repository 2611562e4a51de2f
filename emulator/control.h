/** The control socket, which receives the commands for a running emulator. */
#ifndef KORVANE_EMULATOR_CONTROL_H_
#define KORVANE_EMULATOR_CONTROL_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "loop/main_loop.h"
#include "loop/scoped_source.h"
#include "sockets/frame.h"
#include "sockets/listener.h"
#include "sockets/unique_fd.h"

namespace korvane::emulator {

/** The outcome of a command. */
struct Outcome {
  enum Status { kOk = 0, kRefused = 1, kUsage = 2 };
  Status status;
  std::string text;
  bool is_last = false;  ///< the emulator exits; the client waits for that
};

using Words = std::vector<std::string>;
/** Called once, immediately or later. */
using Respond = std::function<void(const Outcome &)>;

/**
 * Serves one command per connection. The command is a frame with a JSON array of words, the answer
 * a frame with a JSON object. The server is driven by a main loop and never blocks it. It rejects
 * other users and peers that send anything else.
 */
class ControlServer {
 public:
  using Execute = std::function<void(const Words &, Respond)>;

  /** Throws std::system_error. */
  ControlServer(host::MainLoop &loop, const std::filesystem::path &path, Execute execute);
  ControlServer(const ControlServer &) = delete;
  ControlServer &operator=(const ControlServer &) = delete;
  ~ControlServer();

 private:
  struct Caller {
    host::UniqueFd socket;
    host::MainLoop::SourceId source = 0;
    host::FrameReader reader;
    bool has_asked = false;
    host::Bytes answer;          ///< not sent yet
    host::ScopedTimer patience;  ///< limit for the command and for reading the answer
  };

  void accept(host::UniqueFd socket);
  void serve(std::uint64_t id, std::uint32_t epoll_events);
  void execute(std::uint64_t id, const host::Bytes &request);
  void respond(std::uint64_t id, const Outcome &outcome);
  void send_answer(std::uint64_t id);
  void be_patient(std::uint64_t id);
  void forget(std::uint64_t id);

  host::MainLoop &loop_;
  const Execute execute_;
  host::Listener listener_;
  std::uint64_t next_caller_ = 1;
  std::map<std::uint64_t, Caller> callers_;
};

/** Sends a command to the emulator that listens at the path, and waits for the outcome. */
Outcome send_command(const std::filesystem::path &path, const Words &words);

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_CONTROL_H_
