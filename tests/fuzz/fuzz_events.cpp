// Arbitrary bundles into the three event callbacks.
#include "bundle_handle.h"
#include "fuzz_platform.h"
#include "korvane_svcmgr.h"

using korvane::host::EventBundle;
using korvane::host::Parcel;

namespace {

void on_connection(int, korvane_svcmgr_connection_state_e, void *) {}

void on_update(korvane_svcmgr_update_status_e status, void *) {
  fuzz::require(status >= SVCMGR_UPDATE_STATUS_STARTED &&
                status <= SVCMGR_UPDATE_STATUS_FAILED_CODE_13);
}

void on_model(int result, korvane_svcmgr_ai_state_e state, void *) {
  fuzz::require(result == SVCMGR_ERROR_NONE &&
                (state == SVCMGR_AI_STATE_START || state == SVCMGR_AI_STATE_COMPLETED ||
                 state == SVCMGR_AI_STATE_FAILED));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size == 0) return 0;
  korvane_svcmgr_set_update_status_cb(on_update, nullptr);
  korvane_svcmgr_ai_register_status_cb(on_model, nullptr);
  korvane_svcmgr_connect(on_connection, nullptr);
  fuzz::report_connected();
  const auto values = EventBundle::decode(Parcel({data + 1, data + size}));
  bundle_s bundle{values.value_or(EventBundle()), {}};
  if ((data[0] & 1) != 0) fuzz::report_disconnected();
  for (const char *suffix : {".agent_status", ".update_status", ".model_status"}) {
    fuzz::deliver_event(suffix, (data[0] & 2) != 0 ? "another event" : nullptr, &bundle);
  }
  fuzz::report_connected();
  bool updating = false;
  fuzz::require(korvane_svcmgr_is_being_updated(&updating) == SVCMGR_ERROR_NONE);
  korvane_svcmgr_disconnect();
  return 0;
}
