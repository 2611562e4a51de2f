/** A service's listening socket. */
#ifndef KORVANE_HOST_LISTENER_H_
#define KORVANE_HOST_LISTENER_H_

#include <filesystem>
#include <functional>

#include "loop/main_loop.h"
#include "loop/scoped_source.h"
#include "sockets/unique_fd.h"

namespace korvane::host {

/**
 * A listening socket at a path, for processes of this user. Peers wait in its queue while the
 * process has no free descriptor.
 */
class Listener {
 public:
  /** Throws std::system_error. */
  Listener(MainLoop &loop, std::filesystem::path path, std::function<void(UniqueFd)> accepted);
  Listener(const Listener &) = delete;
  Listener &operator=(const Listener &) = delete;
  /** Removes the socket. */
  ~Listener();

 private:
  void accept();

  MainLoop &loop_;
  const std::filesystem::path path_;
  const std::function<void(UniqueFd)> accepted_;
  UniqueFd socket_;
  ScopedSource source_;
  ScopedTimer pause_;
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_LISTENER_H_
