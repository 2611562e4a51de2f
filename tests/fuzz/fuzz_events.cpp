// Arbitrary bundles into the three event callbacks.
#include "fuzz_support.h"
#include "korvane_svcmgr.h"
#include "scripted_platform.h"

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

bundle_s take_bundle(fuzz::Input &input) {
  bundle_s bundle;
  while (!input.empty()) {
    auto &value = bundle[input.text()];
    const unsigned type = input.byte() % 3;
    const std::string text = input.text();
    if (type == 0) value = text;
    if (type == 1) value = Texts{text};
    if (type == 2) value = Bytes(text.begin(), text.end());
  }
  return bundle;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned flags = input.byte();
  const bundle_s bundle = take_bundle(input);
  platform().forget();
  korvane_svcmgr_set_update_status_cb(on_update, nullptr);
  korvane_svcmgr_ai_register_status_cb(on_model, nullptr);
  korvane_svcmgr_connect(on_connection, nullptr);
  platform().report_connected();
  if ((flags & 1) != 0) platform().report_disconnected();
  for (const char *suffix : {".agent_status", ".update_status", ".model_status"}) {
    platform().emit(suffix, bundle, (flags & 2) != 0 ? "another event" : nullptr);
  }
  platform().report_connected();
  bool updating = false;
  fuzz::require(korvane_svcmgr_is_being_updated(&updating) == SVCMGR_ERROR_NONE);
  korvane_svcmgr_disconnect();
  fuzz::require(platform().violations.empty() &&
                platform().live.size() == platform().subscriptions.size());
  return 0;
}
