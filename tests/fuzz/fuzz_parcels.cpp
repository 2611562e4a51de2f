// Arbitrary parcels as results of synchronous calls and as answers to open asynchronous requests.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "SvcMgrAppProxyHandler.h"
#include "fuzz_support.h"
#include "korvane_svcmgr.hpp"
#include "scripted_platform.h"

namespace {

/** More parcels in one input find nothing new. */
constexpr int kMostParcels = 8;

int open_answers = 0;

void on_connection(int, korvane_svcmgr_connection_state_e, void *) {}

void on_models(int, korvane_svcmgr_ai_model_list_h handle, void *) noexcept {
  ++open_answers;
  const korvane::svcmgr::ModelList models(handle);
  for (const auto &model : models) fuzz::require(static_cast<bool>(model));
}

void on_progress(int, korvane_svcmgr_ai_progress_h progress, void *) {
  ++open_answers;
  korvane_svcmgr_ai_progress_destroy(progress);
}

/** Takes values until the input chooses the end of the parcel. */
Parcel take_parcel(FuzzedDataProvider &input) {
  Parcel parcel;
  while (input.remaining_bytes() > 0) {
    switch (input.ConsumeIntegralInRange(0, 4)) {
      case 0:
        parcel.emplace_back(input.ConsumeIntegral<int>());
        break;
      case 1:
        parcel.emplace_back(input.ConsumeBool());
        break;
      case 2:
        parcel.emplace_back(input.ConsumeRandomLengthString());
        break;
      case 3:
        parcel.emplace_back(Count{input.ConsumeIntegral<int>()});
        break;
      default:
        return parcel;
    }
  }
  return parcel;
}

void call_synchronously(const Parcel &result) {
  int level = 0;
  char *license = nullptr;
  platform.main_port.incoming = {result, result, result};
  korvane_svcmgr_get_agent_api_level(&level);
  korvane_svcmgr_get_license_fulltext(&license);
  korvane_svcmgr_request_update();
  std::free(license);
}

}  // namespace

/** Formats a line of the log and drops it. Keeping lines takes a third of the time. */
extern "C" int __wrap_dlog_print(int, const char *, const char *format, ...) {
  va_list values;
  va_start(values, format);
  std::vsnprintf(nullptr, 0, format, values);
  va_end(values);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  platform.forget();
  korvane_svcmgr_connect(on_connection, nullptr);
  platform.report_connected();
  korvane_svcmgr_ai_request_usable_model_list(on_models, nullptr);
  korvane_svcmgr_ai_request_to_update(korvane::svcmgr::ModelList().get(), on_progress, nullptr);
  const std::vector<Parcel> requests = platform.sent;
  fuzz::require(requests.size() == 2);

  FuzzedDataProvider input(data, size);
  for (int count = 0; count < kMostParcels && input.remaining_bytes() > 0; ++count) {
    const Parcel parcel = take_parcel(input);
    call_synchronously(parcel);
    platform.deliver(parcel);
    for (const Parcel &request : requests) {  // as an answer, so that it is decoded
      Parcel answer = {1, request.at(1), request.at(2), false};
      answer.insert(answer.end(), parcel.begin(), parcel.end());
      platform.deliver(answer);
    }
  }
  fuzz::require(size == 0 || open_answers > 0);
  platform.report_disconnected();
  SvcMgrAppProxyHandler::GetInstance().Disconnect();
  fuzz::require(platform.proxies.empty());
  return 0;
}
