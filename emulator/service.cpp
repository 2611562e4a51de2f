#include "service.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace korvane::emulator {

namespace {

constexpr int kCrashStatus = 70;
/** The time limit for clients to reconnect between two consecutive updates. */
constexpr std::chrono::seconds kPatience(2);
constexpr std::chrono::milliseconds kRetry(250);
/** The longest list that fits into a parcel after the fields before it. */
constexpr std::size_t kMaxList = host::kMaxFrameSize - 64;
constexpr std::int32_t kTooLong = 1;

}  // namespace

Service::Service(host::MainLoop &loop, const host::Device &device, const Options &options)
    : loop_(loop),
      tick_(options.tick),
      trace_(options.trace),
      state_(device),
      events_(trace_),
      port_(loop, faults_, trace_,
            [this](const Address &address, const ServicePort::Peer &peer, Parcel parcel) {
              serve(address, peer, std::move(parcel));
            }),
      agent_update_(loop, tick_, state_, faults_, events_),
      model_jobs_(loop, tick_, state_, faults_, events_, port_) {}

void Service::update_itself(int rounds, Back back) {
  be_away({true, rounds, std::move(back)});
}

void Service::restart(Back back) {
  be_away({false, 1, std::move(back)});
}

void Service::reset() {
  faults_ = {};
  state_.reset_license();
}

void Service::be_away(Absence absence) {
  if (absence_) throw std::runtime_error("the service manager is restarting already");
  absence_ = std::move(absence);
  go_away();
}

void Service::go_away() {
  absence_->clients = port_.peers().size();
  if (absence_->announced) absence_->subscribers = agent_status({{"Update", "announced"}});
  port_.close([this] { loop_.add_timer(tick_, [this] { come_back(); }); });
}

void Service::come_back() {
  try {
    state_.load();
  } catch (const std::exception &error) {
    absence_->problem = error.what();
  }
  listen_again();
}

void Service::listen_again() {
  try {
    listen();
  } catch (const std::system_error &error) {
    std::cerr << "svcmgr-emulator: the port cannot be opened yet: " << error.what() << std::endl;
    loop_.add_timer(kRetry, [this] { listen_again(); });
    return;
  }
  be_back();
}

void Service::be_back() {
  announce("Launch");
  if (--absence_->rounds > 0) {
    absence_->deadline = std::chrono::steady_clock::now() + kPatience;
    await_clients();
    return;
  }
  const Absence past = *std::exchange(absence_, std::nullopt);
  past.back(past.problem);
}

// Waits for new subscriptions, since a client without one would miss the next announcement.
void Service::await_clients() {
  const bool all_back = port_.peers().size() >= absence_->clients &&
                        subscriptions(kAgentStatus) >= absence_->subscribers;
  if (all_back || std::chrono::steady_clock::now() >= absence_->deadline) {
    go_away();
  } else {
    loop_.add_timer(tick_, [this] { await_clients(); });
  }
}

Json Service::status() const {
  Json connections = Json::array();
  for (const auto &[id, peer] : port_.peers()) {
    connections.push_back({{"id", id}, {"app_id", peer.app_id}, {"pid", peer.pid}});
  }
  Json jobs = Json::array();
  if (agent_update_.running()) {
    jobs.push_back({{"job", "agent update"}, {"agents", agent_update_.agents()}});
  }
  for (const auto &[id, job] : model_jobs_.jobs()) {
    jobs.push_back({{"job", info_of(job.method).name},
                    {"index", job.index},
                    {"count", job.models.size()},
                    {"percentage", job.percentage}});
  }
  return {{"pid", getpid()},
          {"away", absence_.has_value()},
          {"connections", connections},
          {"jobs", jobs},
          {"requests", requests_},
          {"malformed_requests", malformed_},
          {"events", events_.published()}};
}

void Service::serve(const Address &address, const ServicePort::Peer &peer, Parcel parcel) {
  ++requests_;
  const std::optional<Request> request = read_request(std::move(parcel));
  if (!request) {
    ++malformed_;
    return;
  }
  const Method method = request->info->method;
  if (faults_.crashes_at(method)) _exit(kCrashStatus);
  if (faults_.silent.count(method) == 0) answer(address, peer, *request);
}

void Service::answer(const Address &address, const ServicePort::Peer &peer,
                     const Request &request) {
  switch (request.info->method) {
    case Method::kGetAgentApiLevel:
      answer_code(address, request,
                  faults_.reply_of(request.info->method, state_.agent_api_level()));
      break;
    case Method::kGetLicense: {
      Parcel text;
      text.write_int32(kResultCommand);
      text.write_string(state_.license());
      port_.reply(address, *request.info, text);
      break;
    }
    case Method::kRequestUpdate:
    case Method::kRequestUpdateWithList:
      answer_update(address, peer, request);
      break;
    case Method::kGetUsableModelList:
    case Method::kGetUsableModelListWithDesc:
    case Method::kGetModelVersionList:
      answer_list(address, request);
      break;
    case Method::kRequestToUpdate:
    case Method::kRequestToUninstall:
      answer_job(address, request);
      break;
  }
}

void Service::answer_code(const Address &address, const Request &request, std::int32_t code) {
  Parcel answer;
  answer.write_int32(kResultCommand);
  answer.write_int32(code);
  port_.reply(address, *request.info, answer);
}

void Service::answer_update(const Address &address, const ServicePort::Peer &peer,
                            const Request &request) {
  const bool has_list = request.info->method == Method::kRequestUpdateWithList;
  const bool refused = has_list && agent_update_.running();
  const std::int32_t code =
      faults_.reply_of(request.info->method, refused ? kUpdateInProgress : kDone);
  answer_code(address, request, code);
  if (code != kDone) return;
  const auto *names = has_list ? &request.argument<NameList>(0).names : nullptr;
  agent_update_.request(peer.app_id, state_.agents(names));
}

void Service::answer_list(const Address &address, const Request &request) {
  std::int32_t result = kDone;
  ModelList list = list_for(request, result);
  result = faults_.reply_of(request.info->method, result);
  if (!is_success(result)) list = {};
  Parcel payload;
  write(payload, list);
  if (payload.bytes().size() > kMaxList) {
    result = kTooLong;
    payload = Parcel();
    write(payload, ModelList());
  }
  port_.send(address, {request.argument<DelegateBlock>(0), result, payload.bytes()});
}

ModelList Service::list_for(const Request &request, std::int32_t &result) const {
  const Method method = request.info->method;
  if (method != Method::kGetModelVersionList) {
    return state_.usable_models(request.argument<std::string>(1),
                                method == Method::kGetUsableModelListWithDesc);
  }
  ModelList list;
  const OfferedModel *model = state_.find_model(request.argument<Model>(1).id);
  if (model == nullptr) {
    result = kUnknownModel;
    return list;
  }
  for (const std::string &version : model->versions) {
    list.models.push_back({model->id, version, model->title, model->description});
  }
  list.count = static_cast<std::int32_t>(list.models.size());
  return list;
}

void Service::answer_job(const Address &address, const Request &request) {
  ModelJob job = {address, request.info->method, request.argument<DelegateBlock>(0),
                  request.argument<ModelList>(1).models,
                  faults_.reply_of(request.info->method, kDone)};
  if (is_success(job.result)) {
    model_jobs_.start(std::move(job));
  } else {
    model_jobs_.refuse(job);
  }
}

}  // namespace korvane::emulator
