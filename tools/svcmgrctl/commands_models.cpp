#include <algorithm>
#include <functional>

#include "commands.h"
#include "handles.h"
#include "progress_view.h"
#include "table.h"
#include "terminal.h"

namespace korvane::svcmgrctl {

namespace {

/** A text of a model: how it is called and how it is got. */
struct Field {
  const char *key;
  TableColumn column;
  int (*getter)(korvane_svcmgr_ai_model_info_h, char **);
};

const Field kFields[] = {
    {"id", {"ID", false}, korvane_svcmgr_ai_model_info_get_id},
    {"version", {"VERSION", false}, korvane_svcmgr_ai_model_info_get_version},
    {"title", {"TITLE", false}, korvane_svcmgr_ai_model_info_get_title},
    {"description", {"DESCRIPTION", true}, korvane_svcmgr_ai_model_info_get_description},
};

using Texts = std::vector<std::optional<std::string>>;  ///< by kFields

Texts texts_of(korvane_svcmgr_ai_model_info_h model) {
  Texts texts;
  for (const Field &field : kFields) texts.push_back(get_text(field.getter, model));
  return texts;
}

Json json_of(const Texts &model) {
  Json object = Json::object();
  for (std::size_t i = 0; i < model.size(); ++i) {
    object[kFields[i].key] = model[i] ? Json(*model[i]) : Json();
  }
  return object;
}

/** The models as a table of the fields that any of them has. */
std::string table_of(const std::vector<Texts> &models, std::optional<std::size_t> width) {
  if (models.empty()) return "no models";
  std::vector<TableColumn> columns;
  std::vector<TableRow> rows(models.size());
  for (std::size_t i = 0; i < std::size(kFields); ++i) {
    const auto is_set = [i](const Texts &model) { return model[i] && !model[i]->empty(); };
    if (std::none_of(models.begin(), models.end(), is_set)) continue;
    columns.push_back(kFields[i].column);
    for (std::size_t row = 0; row < rows.size(); ++row) {
      rows[row].push_back(models[row][i].value_or(""));
    }
  }
  return columns.empty() ? "no models with any text" : format_table(columns, rows, width);
}

/** Throws the Failure of an answer that failed or brought nothing. */
template <typename Owned>
void check_answer(int result, const Owned &answer) {
  check(result);
  if (answer == nullptr) check(SVCMGR_ERROR_OUT_OF_MEMORY);
}

/** The answer to a request for a list of models. */
class ListAnswer {
 public:
  explicit ListAnswer(Session &session) : session_(session) {}

  static void handle(int result, korvane_svcmgr_ai_model_list_h handle, void *data) {
    ModelList list(handle);
    ListAnswer &answer = *static_cast<ListAnswer *>(data);
    answer.session_.guard([&] {
      check_answer(result, list);
      answer.list_ = std::move(list);
    });
  }

  korvane_svcmgr_ai_model_list_h wait() {
    session_.wait_until([this] { return list_ != nullptr; });
    return list_.get();
  }

 private:
  Session &session_;
  ModelList list_;
};

std::vector<Texts> texts_of_list(korvane_svcmgr_ai_model_list_h list) {
  std::vector<Texts> models;
  const int size = get_number(korvane_svcmgr_ai_model_list_get_size, list);
  for (int i = 0; i < size; ++i) {
    korvane_svcmgr_ai_model_info_h info = nullptr;
    check(korvane_svcmgr_ai_model_list_get(list, i, &info));
    models.push_back(texts_of(ModelInfo(info).get()));
  }
  return models;
}

using ListRequest = std::function<int(korvane_svcmgr_ai_model_list_cb, void *)>;

void show_models(Session &session, const ListRequest &request) {
  session.connect();
  ListAnswer answer(session);
  session.call([&] { return request(ListAnswer::handle, &answer); });
  const std::vector<Texts> models = texts_of_list(answer.wait());
  Json objects = Json::array();
  for (const Texts &model : models) objects.push_back(json_of(model));
  session.output().succeed(table_of(models, terminal_width()), {{"models", objects}});
}

/** The reports of a request that changes models. */
class ProgressFollower {
 public:
  ProgressFollower(Session &session, std::vector<std::string> names)
      : session_(session), view_(session.output(), std::move(names)) {}

  static void handle(int result, korvane_svcmgr_ai_progress_h handle, void *data) {
    const ProgressReport report(handle);
    ProgressFollower &follower = *static_cast<ProgressFollower *>(data);
    follower.session_.guard([&] {
      if (report == nullptr) check_answer(result, report);
      follower.proceed({result, get_number(korvane_svcmgr_ai_progress_get_state, handle),
                        get_number(korvane_svcmgr_ai_progress_get_index, handle),
                        get_number(korvane_svcmgr_ai_progress_get_count, handle),
                        get_number(korvane_svcmgr_ai_progress_get_percentage, handle)});
    });
  }

  void wait() {
    session_.wait_until([this] { return has_ended_; });
  }

 private:
  void proceed(const Progress &progress) {
    view_.show(progress);
    check(progress.result);
    if (progress.failed()) throw Failure(describe_model_state(progress.state));
    has_ended_ = progress.ends_request();
  }

  Session &session_;
  ProgressView view_;
  bool has_ended_ = false;
};

ModelInfo make_model(const std::string &id) {
  auto model = make<ModelInfo>(korvane_svcmgr_ai_model_info_create);
  check(korvane_svcmgr_ai_model_info_set_id(model.get(), id.c_str()));
  return model;
}

/** A model from ID or ID@VERSION. */
ModelInfo parse_model(const std::string &word) {
  const std::size_t at = word.rfind('@');
  ModelInfo model = make_model(word.substr(0, at));
  if (at != std::string::npos) {
    check(korvane_svcmgr_ai_model_info_set_version(model.get(), word.c_str() + at + 1));
  }
  return model;
}

void change_models(Session &session, const std::vector<std::string> &words,
                   ModelInfo (*model_of)(const std::string &),
                   int (*request)(korvane_svcmgr_ai_model_list_h, korvane_svcmgr_ai_progress_cb,
                                  void *)) {
  session.connect();
  const auto list = make<ModelList>(korvane_svcmgr_ai_model_list_create);
  for (const std::string &word : words) {
    check(korvane_svcmgr_ai_model_list_add(list.get(), model_of(word).get()));
  }
  ProgressFollower follower(session, words);
  session.call([&] { return request(list.get(), ProgressFollower::handle, &follower); });
  follower.wait();
  session.output().succeed("");
}

}  // namespace

void run_models_list(Session &session, const Arguments &arguments) {
  show_models(session, [&](korvane_svcmgr_ai_model_list_cb callback, void *data) {
    if (!arguments.category.empty()) {
      return korvane_svcmgr_ai_request_usable_model_list_with_category(
          callback, arguments.category.c_str(), data);
    }
    return arguments.description
               ? korvane_svcmgr_ai_request_usable_model_list_with_description(callback, data)
               : korvane_svcmgr_ai_request_usable_model_list(callback, data);
  });
}

void run_models_versions(Session &session, const Arguments &arguments) {
  const ModelInfo model = make_model(arguments.model);
  show_models(session, [&](korvane_svcmgr_ai_model_list_cb callback, void *data) {
    return korvane_svcmgr_ai_request_model_version_list(model.get(), callback, data);
  });
}

void run_models_update(Session &session, const Arguments &arguments) {
  change_models(session, arguments.models, parse_model, korvane_svcmgr_ai_request_to_update);
}

void run_models_uninstall(Session &session, const Arguments &arguments) {
  change_models(session, arguments.models, make_model, korvane_svcmgr_ai_request_to_uninstall);
}

}  // namespace korvane::svcmgrctl
