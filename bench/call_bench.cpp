// Measures calls between two processes. Each run of the program makes one measurement:
//   bench_calls socket CALLS          a round trip over a bare socket
//   bench_calls bus CALLS             a call over a message bus library, peer to peer
//   bench_calls service CALLS PID     a call through the public API to the emulator, process PID
//   bench_calls models REPEATS PID    a model list through the public API
// Prints the processor time (the sum of both processes) and the elapsed time of one call, in
// microseconds. For models, also prints the times of destroying the list, and the number of models.
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <string>

#include "korvane_host.h"
#include "korvane_svcmgr.h"

namespace {

void require(bool condition, const char *what) {
  if (!condition) throw std::runtime_error(what);
}

double microseconds(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) * 1e-3;
}

struct Times {
  double processor;  ///< of this process and its peer
  double clock;
};

/** The times so far of this process and its peer. */
Times times(pid_t peer) {
  clockid_t peer_clock = 0;
  require(clock_getcpuclockid(peer, &peer_clock) == 0, "no such process");
  return {microseconds(CLOCK_PROCESS_CPUTIME_ID) + microseconds(peer_clock),
          microseconds(CLOCK_MONOTONIC)};
}

void print_each(const char *name, const Times &begin, const Times &end, int count) {
  std::printf("%sprocessor %.4f\n%sclock %.4f\n", name, (end.processor - begin.processor) / count,
              name, (end.clock - begin.clock) / count);
}

void measure(pid_t peer, int calls, const std::function<void()> &call) {
  for (int i = 0; i < calls / 10 + 1; ++i) call();
  const Times begin = times(peer);
  for (int i = 0; i < calls; ++i) call();
  print_each("", begin, times(peer), calls);
}

/** A process that serves one end of a socket pair while this one uses the other. */
class Peer {
 public:
  explicit Peer(void (*serve)(int socket)) {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
    pid_ = fork();
    require(pid_ >= 0, "fork");
    close(ends[pid_ == 0 ? 0 : 1]);
    socket_ = ends[pid_ == 0 ? 1 : 0];
    if (pid_ > 0) return;
    serve(socket_);
    _exit(0);
  }
  Peer(const Peer &) = delete;
  Peer &operator=(const Peer &) = delete;
  ~Peer() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

  pid_t pid() const { return pid_; }
  int socket() const { return socket_; }

 private:
  pid_t pid_;
  int socket_;
};

/** A frame with one number, like a request to the service manager and its answer. */
struct Frame {
  std::uint32_t length;
  std::int32_t number;
};

void serve_socket(int socket) {
  Frame frame = {};
  while (read(socket, &frame, sizeof(frame)) == sizeof(frame) &&
         write(socket, &frame, sizeof(frame)) == sizeof(frame)) {
  }
}

void measure_socket(int calls) {
  const Peer peer(serve_socket);
  Frame frame = {sizeof(frame.number), 2};
  measure(peer.pid(), calls, [&] {
    require(write(peer.socket(), &frame, sizeof(frame)) == sizeof(frame) &&
                read(peer.socket(), &frame, sizeof(frame)) == sizeof(frame),
            "round trip");
  });
}

constexpr char kBusPath[] = "/service";
constexpr char kBusInterface[] = "org.example.Service";

int get_level(sd_bus_message *message, void * /*user_data*/, sd_bus_error * /*error*/) {
  return sd_bus_reply_method_return(message, "i", 13);
}

const sd_bus_vtable kBusMethods[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_METHOD("GetLevel", "", "i", get_level, 0), SD_BUS_VTABLE_END};

void serve_bus(int socket) {
  sd_bus *bus = nullptr;
  sd_bus_new(&bus);
  sd_bus_set_fd(bus, socket, socket);
  sd_id128_t server = {};
  sd_id128_randomize(&server);
  sd_bus_set_server(bus, 1, server);
  sd_bus_set_trusted(bus, 1);
  sd_bus_start(bus);
  sd_bus_add_object_vtable(bus, nullptr, kBusPath, kBusInterface, kBusMethods, nullptr);
  for (;;) {
    const int done = sd_bus_process(bus, nullptr);
    if (done < 0 || (done == 0 && sd_bus_wait(bus, UINT64_MAX) < 0)) break;
  }
}

void measure_bus(int calls) {
  const Peer peer(serve_bus);
  sd_bus *bus = nullptr;
  require(sd_bus_new(&bus) >= 0 && sd_bus_set_fd(bus, peer.socket(), peer.socket()) >= 0 &&
              sd_bus_start(bus) >= 0,
          "no bus");
  measure(peer.pid(), calls, [bus] {
    sd_bus_message *reply = nullptr;
    int level = 0;
    require(sd_bus_call_method(bus, nullptr, kBusPath, kBusInterface, "GetLevel", nullptr, &reply,
                               "") >= 0 &&
                sd_bus_message_read(reply, "i", &level) >= 0,
            "bus call");
    sd_bus_message_unref(reply);
  });
  sd_bus_close_unref(bus);
}

/** An application that is connected to the emulator. */
class Application {
 public:
  Application() {
    bool connected = false;
    require(korvane_svcmgr_connect(
                [](int, korvane_svcmgr_connection_state_e state, void *data) {
                  *static_cast<bool *>(data) = state == SVCMGR_CONNECTION_CONNECTED;
                },
                &connected) == SVCMGR_ERROR_NONE,
            "cannot connect");
    while (!connected) require(korvane_host_main_loop_step(10000) == 1, "not connected");
  }
  Application(const Application &) = delete;
  Application &operator=(const Application &) = delete;
  ~Application() { korvane_svcmgr_disconnect(); }
};

void measure_service(int calls, pid_t emulator) {
  const Application application;
  measure(emulator, calls, [] {
    int level = 0;
    require(korvane_svcmgr_get_agent_api_level(&level) == SVCMGR_ERROR_NONE, "service call");
  });
}

korvane_svcmgr_ai_model_list_h receive_models() {
  korvane_svcmgr_ai_model_list_h models = nullptr;
  require(korvane_svcmgr_ai_request_usable_model_list_with_description(
              [](int, korvane_svcmgr_ai_model_list_h list, void *received) {
                *static_cast<korvane_svcmgr_ai_model_list_h *>(received) = list;
              },
              &models) == SVCMGR_ERROR_NONE,
          "model request");
  while (models == nullptr) require(korvane_host_main_loop_step(600000) == 1, "no models");
  return models;
}

void measure_models(int repeats, pid_t emulator) {
  const Application application;
  Times receiving = {0, 0};
  Times destroying = {0, 0};
  int size = 0;
  const auto add = [](Times &sum, const Times &begin, const Times &end) {
    sum.processor += end.processor - begin.processor;
    sum.clock += end.clock - begin.clock;
  };
  for (int i = 0; i < repeats; ++i) {
    const Times begin = times(emulator);
    const korvane_svcmgr_ai_model_list_h models = receive_models();
    const Times received = times(emulator);
    korvane_svcmgr_ai_model_list_get_size(models, &size);
    const Times counted = times(emulator);
    korvane_svcmgr_ai_model_list_destroy(models);
    add(receiving, begin, received);
    add(destroying, counted, times(emulator));
  }
  print_each("", {0, 0}, receiving, repeats);
  print_each("destroy_", {0, 0}, destroying, repeats);
  std::printf("models %d\n", size);
}

int run(int argc, char **argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  const int count = argc > 2 ? std::atoi(argv[2]) : 0;
  const pid_t peer = argc > 3 ? std::atoi(argv[3]) : 0;
  if (count <= 0) return 2;
  if (what == "socket" && peer == 0) {
    measure_socket(count);
  } else if (what == "bus" && peer == 0) {
    measure_bus(count);
  } else if (what == "service" && peer > 0) {
    measure_service(count, peer);
  } else if (what == "models" && peer > 0) {
    measure_models(count, peer);
  } else {
    return 2;
  }
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "bench_calls: %s\n", error.what());
    return 1;
  }
}
