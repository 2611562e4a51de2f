// Arbitrary parcels as results of synchronous calls and as answers to open asynchronous requests.
// The input is cut into parcels: a length byte pair, then that many bytes.
#include <cstdlib>

#include "fuzz_platform.h"
#include "korvane_svcmgr.h"
#include "little_endian.h"

using korvane::host::Bytes;

namespace {

int open_answers = 0;

void on_connection(int, korvane_svcmgr_connection_state_e, void *) {}

void on_models(int, korvane_svcmgr_ai_model_list_h list, void *) {
  ++open_answers;
  int size = -1;
  fuzz::require(korvane_svcmgr_ai_model_list_get_size(list, &size) == SVCMGR_ERROR_NONE);
  for (int i = 0; i < size; ++i) {
    korvane_svcmgr_ai_model_info_h info = nullptr;
    fuzz::require(korvane_svcmgr_ai_model_list_get(list, i, &info) == SVCMGR_ERROR_NONE);
    char *text = nullptr;
    fuzz::require(korvane_svcmgr_ai_model_info_get_description(info, &text) == SVCMGR_ERROR_NONE);
    std::free(text);
    korvane_svcmgr_ai_model_info_destroy(info);
  }
  korvane_svcmgr_ai_model_list_destroy(list);
}

void on_progress(int, korvane_svcmgr_ai_progress_h progress, void *) {
  ++open_answers;
  korvane_svcmgr_ai_progress_destroy(progress);
}

void call_synchronously(const Bytes &parcel) {
  int level = 0;
  fuzz::queue_main(parcel);
  korvane_svcmgr_get_agent_api_level(&level);
  char *license = nullptr;
  fuzz::queue_main(parcel);
  korvane_svcmgr_get_license_fulltext(&license);
  std::free(license);
  fuzz::queue_main(parcel);
  korvane_svcmgr_request_update();
}

/** The parcel as an event for the delegate with this id and number, so that it is decoded. */
Bytes addressed(std::uint32_t id, std::uint32_t sequence, const Bytes &payload) {
  Bytes event(13);
  korvane::host::store_u32(&event[0], 1);
  korvane::host::store_u32(&event[4], id);
  korvane::host::store_u32(&event[8], sequence);
  event.insert(event.end(), payload.begin(), payload.end());
  return event;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static std::uint32_t sequence = 0;
  korvane_svcmgr_connect(on_connection, nullptr);
  fuzz::report_connected();
  korvane_svcmgr_ai_request_usable_model_list(on_models, nullptr);
  korvane_svcmgr_ai_model_list_h models = nullptr;
  korvane_svcmgr_ai_model_list_create(&models);
  korvane_svcmgr_ai_request_to_update(models, on_progress, nullptr);
  korvane_svcmgr_ai_model_list_destroy(models);

  const std::size_t start = size;
  while (size >= 2) {
    std::size_t length = data[0] | std::size_t{data[1]} << 8;
    data += 2;
    size -= 2;
    if (length > size) length = size;
    const Bytes parcel(data, data + length);
    data += length;
    size -= length;
    call_synchronously(parcel);
    for (const Bytes &event :
         {parcel, addressed(1, sequence, parcel), addressed(4, sequence + 1, parcel)}) {
      fuzz::queue_callback(event);
      fuzz::report_received();
    }
  }
  fuzz::require(start < 2 || open_answers > 0);
  sequence += 2;
  fuzz::report_disconnected();
  korvane_svcmgr_connect(on_connection, nullptr);
  fuzz::report_connected();
  korvane_svcmgr_disconnect();
  return 0;
}
