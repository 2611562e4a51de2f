#include "trace.h"

#include <iostream>

#include "json_file.h"

namespace korvane::emulator {

namespace {

std::string text_of(std::int32_t value) {
  return std::to_string(value);
}

std::string text_of(const std::string &text) {
  return quoted(text);
}

std::string text_of(const DelegateBlock &block) {
  return text_of(block.id) + "/" + text_of(block.sequence) + (block.once ? "/once" : "");
}

std::string text_of(const Model &model) {
  return "{" + quoted(model.id) + " " + quoted(model.version) + " " + quoted(model.title) + " " +
         quoted(model.description) + "}";
}

std::string text_of(const Progress &progress) {
  return "{state=" + text_of(progress.state) + " index=" + text_of(progress.index) +
         " count=" + text_of(progress.count) + " percentage=" + text_of(progress.percentage) + "}";
}

template <typename Element>
std::string text_of_list(const std::vector<Element> &elements, std::int32_t count) {
  std::string text;
  for (const Element &element : elements) text += (text.empty() ? "" : ", ") + text_of(element);
  return "[" + text + "] count=" + text_of(count);
}

std::string text_of(const ModelList &list) {
  return text_of_list(list.models, list.count);
}

std::string text_of(const NameList &list) {
  return text_of_list(list.names, list.count);
}

/** Reads fields and formats each as " name=value". */
std::string read_fields(Parcel &parcel, const std::vector<Field> &fields) {
  std::string text;
  for (const Field &field : fields) {
    const std::optional<Value> value = field.read(parcel);
    if (!value) return text + " <truncated>";
    text += std::string(" ") + field.name + "=" +
            std::visit([](const auto &held) { return text_of(held); }, *value);
  }
  return parcel.at_end() ? text : text + " <more>";
}

std::optional<std::int32_t> read_first(Parcel &parcel) {
  std::int32_t first = 0;
  if (!parcel.read_int32(first)) return std::nullopt;
  return first;
}

/** A parcel whose start is not valid on its port. */
std::string unknown(const std::optional<std::int32_t> &first, const Parcel &parcel) {
  return (first ? "unknown " + text_of(*first) : "no number") + " <" +
         std::to_string(parcel.bytes().size()) + " bytes>";
}

std::string delegate_event(Parcel parcel) {
  const auto first = read_first(parcel);
  if (first != kCallbackCommand) return unknown(first, parcel);
  const auto delegate = delegate_field().read(parcel);
  if (!delegate) return "event <truncated>";
  const auto &block = std::get<DelegateBlock>(*delegate);
  const MethodInfo *info = find_delegate(block.id);
  std::string text =
      std::string("event ") + (info == nullptr ? "?" : info->name) + " delegate=" + text_of(block);
  if (info == nullptr) return text;
  const Field &code = info_of(Method::kRequestUpdate).answer;
  return text + read_fields(parcel, {code, info->answer});
}

std::string head(const char *arrow, std::uint64_t connection, const char *port) {
  return std::string(arrow) + " " + std::to_string(connection) + " " + port + " ";
}

}  // namespace

std::string quoted(const std::string &text) {
  return to_text(Json(text));
}

void Trace::request(std::uint64_t connection, const Parcel &parcel) const {
  if (!on_) return;
  Parcel rest = parcel;
  const auto first = read_first(rest);
  const MethodInfo *info = first ? find_method(*first) : nullptr;
  note(head("<-", connection, "main") + (info == nullptr
                                             ? unknown(first, parcel)
                                             : info->name + read_fields(rest, info->arguments)));
}

void Trace::reply(std::uint64_t connection, const MethodInfo *info, const Parcel &parcel) const {
  if (!on_) return;
  Parcel rest = parcel;
  const auto first = read_first(rest);
  const bool is_result = first == kResultCommand && info != nullptr;
  note(head("->", connection, "main") +
       (is_result ? std::string("result ") + info->name + read_fields(rest, {info->answer})
                  : unknown(first, parcel)));
}

void Trace::callback(std::uint64_t connection, const Parcel &parcel) const {
  if (!on_) return;
  note(head("->", connection, "callback") + delegate_event(parcel));
}

void Trace::event(const std::string &name, const std::string &payload, std::size_t reached) const {
  note("=> " + name + payload + " to " + std::to_string(reached) +
       (reached == 1 ? " subscriber" : " subscribers"));
}

void Trace::note(const std::string &text) const {
  if (on_) std::cerr << text + "\n" << std::flush;
}

}  // namespace korvane::emulator
