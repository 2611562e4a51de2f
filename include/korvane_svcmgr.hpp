/**
 * @file korvane_svcmgr.hpp
 * The client API of the device's service manager for C++17: owners of the
 * handles, texts as std::string, lists as ranges, errors as std::error_code.
 *
 * It is a thin layer over korvane_svcmgr.h, header only, and needs no further
 * library. Connections, requests and callbacks are those of the C API:
 *
 * @code
 * static void on_models(int result, korvane_svcmgr_ai_model_list_h handle, void *) try {
 *     const korvane::svcmgr::ModelList models(handle);
 *     korvane::svcmgr::check(result);
 *     for (const auto &model : models)
 *         std::cout << model.id().value_or("(no ID)") << '\n';
 * } catch (const std::exception &error) {
 *     std::cerr << error.what() << '\n';
 * }
 *
 * korvane::svcmgr::check(korvane_svcmgr_ai_request_usable_model_list(on_models, nullptr));
 * @endcode
 *
 * @par Errors
 * Every failure is thrown as a std::system_error whose code() compares equal to
 * one of #korvane_svcmgr_error_e and whose what() is the code's meaning. If a
 * text cannot be copied into a std::string, std::bad_alloc is thrown. There are
 * no overloads that store an error: to get error codes, call the C API with
 * get(). A callback is called from C and must not throw: catch the exceptions of
 * this header inside the callback, as above.
 *
 * @par Threads
 * As in the C API: the thread of the application's main loop.
 *
 * @par Ownership
 * An owner releases its handle when it is destroyed or assigned to. It can be
 * moved, but not copied. After a move or release() it has no handle, and its other
 * members throw #SVCMGR_ERROR_INVALID_PARAMETER. As in the C API, nothing is
 * released while the service manager is not installed.
 */
#ifndef KORVANE_SVCMGR_HPP_
#define KORVANE_SVCMGR_HPP_

#if __cplusplus < 201703L
#error "korvane_svcmgr.hpp needs C++17: compile with -std=c++17 or later"
#endif

#include <korvane_svcmgr.h>

#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>

namespace korvane::svcmgr {

/* ---- Errors ------------------------------------------------------------------------------ */

/** The category of #korvane_svcmgr_error_e; see error_category(). */
class ErrorCategory : public std::error_category {
 public:
  /** The library's name. */
  const char *name() const noexcept override { return "korvane_svcmgr"; }
  /** The meaning of an error code. */
  std::string message(int code) const override { return korvane_svcmgr_error_text(code); }
  /** The equivalent std::errc, if there is one, for `error == std::errc::not_connected`. */
  std::error_condition default_error_condition(int code) const noexcept override {
    switch (code) {
      case SVCMGR_ERROR_OUT_OF_MEMORY:
        return std::errc::not_enough_memory;
      case SVCMGR_ERROR_PERMISSION_DENIED:
        return std::errc::permission_denied;
      case SVCMGR_ERROR_INVALID_PARAMETER:
        return std::errc::invalid_argument;
      case SVCMGR_ERROR_NO_SPACE:
        return std::errc::no_space_on_device;
      case SVCMGR_ERROR_ALREADY_CONNECTED:
        return std::errc::already_connected;
      case SVCMGR_ERROR_NOT_CONNECTED:
        return std::errc::not_connected;
      case SVCMGR_ERROR_NOT_SUPPORTED:
      case SVCMGR_ERROR_NOT_SUPPORTED_VERSION:
        return std::errc::not_supported;
      case SVCMGR_ERROR_UPDATE_IN_PROGRESS:
        return std::errc::operation_in_progress;
      default:
        return {code, *this};
    }
  }
};

/**
 * The category of the library's error codes. A library that was loaded with RTLD_LOCAL may have a
 * category object of its own: then compare the values of error codes and the names of categories.
 */
SVCMGR_API inline const std::error_category &error_category() noexcept {
  static const ErrorCategory category;
  return category;
}

/** Throws a std::system_error unless an error code is #SVCMGR_ERROR_NONE. */
inline void check(int code) {
  if (code != SVCMGR_ERROR_NONE) throw std::system_error(code, error_category());
}

/** As above; the exception's what() begins with this text, for example the name of the action. */
inline void check(int code, const char *text) {
  if (code != SVCMGR_ERROR_NONE) throw std::system_error(code, error_category(), text);
}

}  // namespace korvane::svcmgr

/** For `error.code() == SVCMGR_ERROR_NOT_CONNECTED`. In the namespace of the enumeration. */
inline std::error_code make_error_code(korvane_svcmgr_error_e code) noexcept {
  return {code, korvane::svcmgr::error_category()};
}

/// @cond
/** An error code of the library converts to a std::error_code. */
template <>
struct std::is_error_code_enum<korvane_svcmgr_error_e> : std::true_type {};
/// @endcond

namespace korvane::svcmgr {

namespace detail {

/** The value that a function of the C API stores through its last argument. */
template <typename Value, typename Function, typename... Arguments>
Value fetch(Function function, Arguments... arguments) {
  Value value{};
  check(function(arguments..., &value));
  return value;
}

struct Free {
  void operator()(char *text) const noexcept { std::free(text); }
};

/** Copies and releases a text of the C API; no value when it is null. */
inline std::optional<std::string> take_text(char *text) {
  const std::unique_ptr<char, Free> owner(text);
  if (text == nullptr) return std::nullopt;
  return text;
}

/** As fetch(), for a text. */
template <typename Function, typename... Arguments>
std::string fetch_text(Function function, Arguments... arguments) {
  return take_text(fetch<char *>(function, arguments...)).value();
}

}  // namespace detail

/* ---- Owners ------------------------------------------------------------------------------ */

/** The base of all owners; create and destroy are functions of the C API. */
template <typename Handle, int (*create)(Handle *), int (*destroy)(Handle)>
class HandleOwner {
 public:
  /** Creates and owns a new handle. */
  HandleOwner() : HandleOwner(detail::fetch<Handle>(create)) {}
  /** Takes ownership of a handle, for example of one that a callback received. May be null. */
  explicit HandleOwner(Handle handle) noexcept : handle_(handle) {}

  /** The handle, for calls of the C API. This object keeps the ownership. */
  Handle get() const noexcept { return handle_.get(); }
  /** The handle. Its ownership passes to the caller. */
  [[nodiscard]] Handle release() noexcept { return handle_.release(); }
  /** Whether there is a handle. */
  explicit operator bool() const noexcept { return handle_ != nullptr; }

 private:
  struct Destroy {
    void operator()(Handle handle) const noexcept { destroy(handle); }
  };
  std::unique_ptr<std::remove_pointer_t<Handle>, Destroy> handle_;
};

/** One AI model. Texts are cut as in #korvane_svcmgr_ai_model_info_h. */
class ModelInfo
    : public HandleOwner<korvane_svcmgr_ai_model_info_h, korvane_svcmgr_ai_model_info_create,
                         korvane_svcmgr_ai_model_info_destroy> {
 public:
  using HandleOwner::HandleOwner;

  ///@{
  /** A text of the model; no value if it was never set. */
  std::optional<std::string> id() const { return text(korvane_svcmgr_ai_model_info_get_id); }
  std::optional<std::string> version() const {
    return text(korvane_svcmgr_ai_model_info_get_version);
  }
  std::optional<std::string> title() const { return text(korvane_svcmgr_ai_model_info_get_title); }
  std::optional<std::string> description() const {
    return text(korvane_svcmgr_ai_model_info_get_description);
  }
  ///@}

  ///@{
  /** Sets a text, replacing an earlier one. A NUL ends the text. */
  void set_id(const std::string &id) {
    check(korvane_svcmgr_ai_model_info_set_id(get(), id.c_str()));
  }
  void set_version(const std::string &version) {
    check(korvane_svcmgr_ai_model_info_set_version(get(), version.c_str()));
  }
  void set_title(const std::string &title) {
    check(korvane_svcmgr_ai_model_info_set_title(get(), title.c_str()));
  }
  void set_description(const std::string &description) {
    check(korvane_svcmgr_ai_model_info_set_description(get(), description.c_str()));
  }
  ///@}

 private:
  std::optional<std::string> text(int (*getter)(korvane_svcmgr_ai_model_info_h, char **)) const {
    char *value = nullptr;
    const int error = getter(get(), &value);
    if (error != SVCMGR_ERROR_INVALID_OPERATION) check(error);
    return detail::take_text(value);
  }
};

/** One progress report; the values are those of #korvane_svcmgr_ai_progress_h. */
class Progress : public HandleOwner<korvane_svcmgr_ai_progress_h, korvane_svcmgr_ai_progress_create,
                                    korvane_svcmgr_ai_progress_destroy> {
 public:
  using HandleOwner::HandleOwner;

  /** The service manager's state code, see #korvane_svcmgr_ai_state_e. */
  int state() const { return detail::fetch<int>(korvane_svcmgr_ai_progress_get_state, get()); }
  /** Position of the model that the report is about. */
  int index() const { return detail::fetch<int>(korvane_svcmgr_ai_progress_get_index, get()); }
  /** Number of models of the request. */
  int count() const { return detail::fetch<int>(korvane_svcmgr_ai_progress_get_count, get()); }
  /** The progress of the model, in percent. */
  int percentage() const {
    return detail::fetch<int>(korvane_svcmgr_ai_progress_get_percentage, get());
  }

  ///@{
  /** Sets a value, which is not checked. */
  void set_state(int state) { check(korvane_svcmgr_ai_progress_set_state(get(), state)); }
  void set_index(int index) { check(korvane_svcmgr_ai_progress_set_index(get(), index)); }
  void set_count(int count) { check(korvane_svcmgr_ai_progress_set_count(get(), count)); }
  void set_percentage(int percentage) {
    check(korvane_svcmgr_ai_progress_set_percentage(get(), percentage));
  }
  ///@}
};

/* ---- Lists ------------------------------------------------------------------------------- */

/**
 * Iterates over a list. Each access returns a copy of the entry, so this is an
 * input iterator; still, a copy of it can be used for a second pass. It is valid
 * as long as the handle of its list.
 */
template <typename Handle, auto entry_at>
class EntryIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = decltype(entry_at(Handle(), 0));
  using difference_type = std::ptrdiff_t;
  using reference = value_type;

  /** Holds the copy of an entry while `iterator->member` is evaluated. */
  class pointer {
   public:
    explicit pointer(value_type entry) : entry_(std::move(entry)) {}
    const value_type *operator->() const noexcept { return &entry_; }

   private:
    value_type entry_;
  };

  EntryIterator() = default;
  EntryIterator(Handle list, int index) noexcept : list_(list), index_(index) {}

  reference operator*() const { return entry_at(list_, index_); }
  pointer operator->() const { return pointer(**this); }
  EntryIterator &operator++() noexcept {
    ++index_;
    return *this;
  }
  EntryIterator operator++(int) noexcept {
    EntryIterator before = *this;
    ++index_;
    return before;
  }
  friend bool operator==(const EntryIterator &left, const EntryIterator &right) noexcept {
    return left.list_ == right.list_ && left.index_ == right.index_;
  }
  friend bool operator!=(const EntryIterator &left, const EntryIterator &right) noexcept {
    return !(left == right);
  }

 private:
  Handle list_ = nullptr;
  int index_ = 0;
};

/** The base of both lists: a range that yields copies of the entries. */
template <typename Handle, int (*create)(Handle *), int (*destroy)(Handle),
          int (*get_size)(Handle, int *), auto entry_at>
class ListOwner : public HandleOwner<Handle, create, destroy> {
 public:
  using HandleOwner<Handle, create, destroy>::HandleOwner;
  /** The iterator, which yields copies of the entries. */
  using const_iterator = EntryIterator<Handle, entry_at>;
  /** The same type: entries cannot be changed. */
  using iterator = const_iterator;
  /** The type of a copied entry. */
  using value_type = typename const_iterator::value_type;

  /** The number of entries. */
  int size() const { return detail::fetch<int>(get_size, this->get()); }
  /** Whether the list has no entries. */
  bool empty() const { return size() == 0; }
  /** A copy of one entry; an index outside the list throws #SVCMGR_ERROR_OUT_OF_INDEX. */
  value_type at(int index) const { return entry_at(this->get(), index); }

  /** An iterator to the first entry. */
  const_iterator begin() const noexcept { return {this->get(), 0}; }
  /** The end of the list at this moment: entries that are appended later are not included. */
  const_iterator end() const { return {this->get(), size()}; }
};

namespace detail {

inline std::string agent_at(korvane_svcmgr_agent_list_h list, int index) {
  return fetch_text(korvane_svcmgr_agent_list_get, list, index);
}

inline ModelInfo model_at(korvane_svcmgr_ai_model_list_h list, int index) {
  return ModelInfo(
      fetch<korvane_svcmgr_ai_model_info_h>(korvane_svcmgr_ai_model_list_get, list, index));
}

}  // namespace detail

/** An ordered list of agent names; a range of std::string. */
class AgentList : public ListOwner<korvane_svcmgr_agent_list_h, korvane_svcmgr_agent_list_create,
                                   korvane_svcmgr_agent_list_destroy,
                                   korvane_svcmgr_agent_list_get_size, detail::agent_at> {
 public:
  using ListOwner::ListOwner;

  /** Appends a name. A NUL ends the name. */
  void add(const std::string &agent) { check(korvane_svcmgr_agent_list_add(get(), agent.c_str())); }
};

/** An ordered list of models; a range of ModelInfo. */
class ModelList
    : public ListOwner<korvane_svcmgr_ai_model_list_h, korvane_svcmgr_ai_model_list_create,
                       korvane_svcmgr_ai_model_list_destroy, korvane_svcmgr_ai_model_list_get_size,
                       detail::model_at> {
 public:
  using ListOwner::ListOwner;

  /** Appends a copy of a model. */
  void add(const ModelInfo &model) { check(korvane_svcmgr_ai_model_list_add(get(), model.get())); }
};

/* ---- Functions of the C API that return what they store, and throw their errors ------------- */

/** See korvane_svcmgr_get_client_api_level(). */
inline int get_client_api_level() {
  return detail::fetch<int>(korvane_svcmgr_get_client_api_level);
}

/** See korvane_svcmgr_get_agent_api_level(). */
inline int get_agent_api_level() {
  return detail::fetch<int>(korvane_svcmgr_get_agent_api_level);
}

/** See korvane_svcmgr_get_license_fulltext(); no value when there is no text. */
inline std::optional<std::string> get_license_fulltext() {
  return detail::take_text(detail::fetch<char *>(korvane_svcmgr_get_license_fulltext));
}

/** See korvane_svcmgr_request_update(). */
inline void request_update() {
  check(korvane_svcmgr_request_update());
}

/** See korvane_svcmgr_request_update_with_list(). */
inline void request_update(const AgentList &agents) {
  check(korvane_svcmgr_request_update_with_list(agents.get(), nullptr));
}

/** See korvane_svcmgr_is_being_updated(). */
inline bool is_being_updated() {
  return detail::fetch<bool>(korvane_svcmgr_is_being_updated);
}

}  // namespace korvane::svcmgr

#endif  // KORVANE_SVCMGR_HPP_
