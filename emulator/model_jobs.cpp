#include "model_jobs.h"

#include <algorithm>
#include <iostream>
#include <utility>

namespace korvane::emulator {

namespace {

constexpr std::int32_t kPercentStep = 25;
constexpr std::int32_t kStorageFailure = 1;

}  // namespace

void ModelJobs::start(ModelJob job) {
  const std::uint64_t id = next_id_++;
  const ModelJob &started = jobs_.emplace(id, std::move(job)).first->second;
  report(started, kStateStarted, started.result);
  events_.publish_or_log(kModelStatus, {{"START", "started"}});
  schedule_step(id);
}

void ModelJobs::schedule_step(std::uint64_t id) {
  loop_.add_timer(tick_, [this, id] { step(id); });
}

void ModelJobs::step(std::uint64_t id) {
  ModelJob &job = jobs_.at(id);
  if (const std::int32_t failure = obstacle(job); failure != kDone) {
    end(id, failure);
  } else if (job.index == job.models.size()) {
    end(id, apply(job));
  } else {
    advance(job);
    schedule_step(id);
  }
}

void ModelJobs::advance(ModelJob &job) {
  job.percentage += kPercentStep;
  report(job, kStateStarted, job.result);
  if (job.percentage < 100) return;
  ++job.index;
  if (job.index < job.models.size()) job.percentage = 0;
}

std::int32_t ModelJobs::obstacle(const ModelJob &job) {
  if (const auto failure = std::exchange(faults_.model_failure, std::nullopt)) return *failure;
  if (job.index == job.models.size()) return kDone;
  const Model &wanted = job.models[job.index];
  const OfferedModel *model = state_.find_model(wanted.id);
  if (model == nullptr) return kUnknownModel;
  const bool possible = job.method == Method::kRequestToUninstall
                            ? !model->installed.empty()
                            : wanted.version.empty() || model->has_version(wanted.version);
  return possible ? kDone : kUnknownModel;
}

std::int32_t ModelJobs::apply(const ModelJob &job) {
  ServiceState::InstalledVersions versions;
  for (const Model &wanted : job.models) {
    std::string version = wanted.version;
    if (job.method == Method::kRequestToUninstall) {
      version.clear();
    } else if (const auto *model = state_.find_model(wanted.id); version.empty() && model) {
      version = model->versions.back();
    }
    versions[wanted.id] = version;
  }
  try {
    state_.set_installed(versions);
    return kDone;
  } catch (const std::exception &error) {
    std::cerr << "svcmgr-emulator: models did not change: " << error.what() << '\n';
    return kStorageFailure;
  }
}

void ModelJobs::end(std::uint64_t id, std::int32_t failure) {
  const ModelJob job = std::move(jobs_.extract(id).mapped());
  if (failure == kDone) {
    report(job, kStateCompleted, job.result);
    events_.publish_or_log(kModelStatus, {{"COMPLETED", "completed"}});
  } else {
    report(job, kStateFailed, failure);
    events_.publish_or_log(kModelStatus, {{"FAILED", "failed"}});
  }
}

void ModelJobs::report(const ModelJob &job, std::int32_t state, std::int32_t result) {
  const auto count = static_cast<std::int32_t>(job.models.size());
  const auto index = std::min(static_cast<std::int32_t>(job.index), std::max(count - 1, 0));
  Parcel payload;
  write(payload, Progress{state, index, count, job.percentage});
  port_.send(job.address, {job.delegate, result, payload.bytes()});
}

}  // namespace korvane::emulator
