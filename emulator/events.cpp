#include "events.h"

#include <cstring>
#include <iostream>
#include <system_error>

#include "events/event_publisher.h"

namespace korvane::emulator {

namespace {

using Bytes = host::EventBundle::Bytes;
using Texts = std::vector<std::string>;

std::string name_of(const std::string &status) {
  return "event." SVCMGR_APP_ID "." + status;
}

/** Writes values to a bundle and to the trace. */
struct Entry {
  host::EventBundle &bundle;
  const std::string &key;

  std::string operator()(const std::string &text) const {
    bundle.set_string(key, text);
    return quoted(text);
  }
  std::string operator()(const Texts &texts) const {
    bundle.set_string_array(key, texts);
    std::string list;
    for (const std::string &text : texts) list += (list.empty() ? "" : ", ") + quoted(text);
    return "[" + list + "]";
  }
  std::string operator()(const Bytes &bytes) const {
    bundle.set_bytes(key, bytes);
    static const char *const kDigits = "0123456789abcdef";
    std::string text = "bytes:";
    for (const unsigned byte : bytes) {
      text += kDigits[byte >> 4U];
      text += kDigits[byte & 15U];
    }
    return text;
  }
};

}  // namespace

Bytes code_bytes(std::int32_t code) {
  Bytes bytes(sizeof(code));
  std::memcpy(bytes.data(), &code, sizeof(code));
  return bytes;
}

std::size_t Events::publish(const std::string &status, const EventPayload &payload) {
  host::EventBundle bundle;
  std::string text;
  for (const auto &[key, value] : payload) {
    text += " " + quoted(key) + "=" + std::visit(Entry{bundle, key}, value);
  }
  const std::string name = name_of(status);
  const host::PublishResult result = host::publish_event(name, bundle);
  ++published_;
  trace_.event(name, text, result.reached);
  return result.reached;
}

std::size_t Events::publish_or_log(const std::string &status, const EventPayload &payload) {
  try {
    return publish(status, payload);
  } catch (const std::system_error &error) {
    std::cerr << "svcmgr-emulator: cannot publish " << status << ": " << error.what() << '\n';
    return 0;
  }
}

std::size_t subscriptions(const std::string &status) {
  try {
    return host::event_subscribers(name_of(status)).size();
  } catch (const std::system_error &) {
    return 0;
  }
}

}  // namespace korvane::emulator
