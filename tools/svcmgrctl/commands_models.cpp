#include <algorithm>
#include <functional>
#include <utility>

#include "command_line/command_line.h"
#include "commands.h"
#include "progress_view.h"
#include "table.h"
#include "terminal.h"

namespace korvane::svcmgrctl {

namespace {

/** A text field of a model: its name and its getter. */
struct Field {
  const char *key;
  TableColumn column;
  std::optional<std::string> (svcmgr::ModelInfo::*text)() const;
};

const Field kFields[] = {
    {"id", {"ID", false}, &svcmgr::ModelInfo::id},
    {"version", {"VERSION", false}, &svcmgr::ModelInfo::version},
    {"title", {"TITLE", true}, &svcmgr::ModelInfo::title},
    {"description", {"DESCRIPTION", true}, &svcmgr::ModelInfo::description},
};

using Texts = std::vector<std::optional<std::string>>;  ///< in the order of kFields

Texts texts_of(const svcmgr::ModelInfo &model) {
  Texts texts;
  for (const Field &field : kFields) texts.push_back((model.*field.text)());
  return texts;
}

Json json_of(const Texts &model) {
  Json object = Json::object();
  for (std::size_t i = 0; i < model.size(); ++i) {
    object[kFields[i].key] = model[i] ? Json(*model[i]) : Json();
  }
  return object;
}

/** The models as a table, without the fields that are empty in all models. */
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

/** Throws the error of a failed or empty answer. */
void check_answer(int result, bool has_content) {
  check(result);
  if (!has_content) check(SVCMGR_ERROR_OUT_OF_MEMORY);
}

/** The answer to a request for a list of models. */
class ListAnswer {
 public:
  explicit ListAnswer(Session &session) : session_(session) {}

  static void handle(int result, korvane_svcmgr_ai_model_list_h handle, void *data) {
    svcmgr::ModelList list(handle);
    ListAnswer &answer = *static_cast<ListAnswer *>(data);
    answer.session_.guard([&] {
      check_answer(result, bool(list));
      answer.list_ = std::move(list);
    });
  }

  svcmgr::ModelList wait() {
    session_.wait_for_answer([this] { return bool(list_); });
    return std::move(list_);
  }

 private:
  Session &session_;
  svcmgr::ModelList list_ = svcmgr::ModelList(nullptr);
};

using ListRequest = std::function<int(korvane_svcmgr_ai_model_list_cb, void *)>;

svcmgr::ModelList request_models(Session &session, const ListRequest &request) {
  ListAnswer answer(session);
  session.catch_interruptions();
  session.call([&] { return request(ListAnswer::handle, &answer); });
  return answer.wait();
}

svcmgr::ModelInfo make_model(const std::string &id) {
  svcmgr::ModelInfo model;
  model.set_id(id);
  return model;
}

svcmgr::ModelList request_versions(Session &session, const std::string &id) {
  const svcmgr::ModelInfo model = make_model(id);
  return request_models(session, [&](korvane_svcmgr_ai_model_list_cb callback, void *data) {
    return korvane_svcmgr_ai_request_model_version_list(model.get(), callback, data);
  });
}

void show_models(Session &session, const svcmgr::ModelList &list) {
  std::vector<Texts> models;
  Json objects = Json::array();
  for (const svcmgr::ModelInfo &model : list) {
    models.push_back(texts_of(model));
    objects.push_back(json_of(models.back()));
  }
  session.output().succeed(table_of(models, terminal_width()), {{"models", objects}});
}

/** A model named on the command line. */
struct NamedModel {
  std::string id;
  std::string version;  ///< empty: the newest
};

/** Parses ID or ID@VERSION. */
NamedModel parse_model(const std::string &word) {
  const std::size_t at = word.rfind('@');
  return {word.substr(0, at), at == std::string::npos ? "" : word.substr(at + 1)};
}

bool contains(const Words &words, const std::string &word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

/** The versions of a model; the service manager must offer it. */
Words versions_of(Session &session, const std::string &id) {
  Words versions;
  try {
    for (const svcmgr::ModelInfo &model : request_versions(session, id)) {
      versions.push_back(model.version().value_or(""));
    }
  } catch (const std::system_error &error) {
    if (error.code() != SVCMGR_ERROR_INVALID_OPERATION) throw;
    throw Failure(
        SVCMGR_ERROR_INVALID_OPERATION,
        "the service manager has no model \"" + id + "\"" +
            command_line::suggestion(id, usable_model_ids(session),
                                     "; \"svcmgrctl models list\" shows the available ones"));
  }
  return versions;
}

/** Throws a Failure with the reason why the service manager refuses a model, if it can be found. */
void explain_refusal(Session &session, const NamedModel &model, bool must_be_installed) {
  const Words versions = versions_of(session, model.id);
  if (!model.version.empty() && !contains(versions, model.version)) {
    throw Failure(SVCMGR_ERROR_INVALID_OPERATION,
                  model.id + " has no version \"" + model.version +
                      "\"; available: " + command_line::listed(versions));
  }
  if (must_be_installed && !contains(usable_model_ids(session), model.id)) {
    throw Failure(SVCMGR_ERROR_INVALID_OPERATION, model.id + " is not installed");
  }
}

/** The reports of a request that changes models. */
class ProgressFollower {
 public:
  ProgressFollower(Session &session, std::vector<std::string> names)
      : session_(session), view_(session.output(), std::move(names)) {}

  static void handle(int result, korvane_svcmgr_ai_progress_h handle, void *data) {
    const svcmgr::Progress report(handle);
    ProgressFollower &follower = *static_cast<ProgressFollower *>(data);
    follower.session_.guard([&] {
      if (!report) check_answer(result, false);
      follower.proceed(
          {result, report.state(), report.index(), report.count(), report.percentage()});
    });
  }

  void wait() {
    session_.wait_for_end([this] { return has_ended_; }, Work::kModelChange);
  }

 private:
  void proceed(const Progress &progress) {
    session_.restart_time();
    view_.show(progress);
    check(progress.result);
    if (progress.failed()) throw Failure(describe_model_state(progress.state));
    has_ended_ = progress.ends_request();
  }

  Session &session_;
  ProgressView view_;
  bool has_ended_ = false;
};

using ChangeRequest = int (*)(korvane_svcmgr_ai_model_list_h, korvane_svcmgr_ai_progress_cb,
                              void *);

/** Requests a change of models and waits until it ends. names: the models as given by the user. */
void change_models(Session &session, const Words &names, const std::vector<NamedModel> &models,
                   ChangeRequest request) {
  svcmgr::ModelList list;
  for (const NamedModel &named : models) {
    svcmgr::ModelInfo model = make_model(named.id);
    if (!named.version.empty()) model.set_version(named.version);
    list.add(model);
  }
  ProgressFollower follower(session, names);
  session.call([&] { return request(list.get(), ProgressFollower::handle, &follower); });
  follower.wait();
}

/** As change_models, but explains why a model is refused. */
void change_or_explain(Session &session, const Words &names, const std::vector<NamedModel> &models,
                       ChangeRequest request, bool must_be_installed) {
  session.connect();
  try {
    change_models(session, names, models, request);
  } catch (const std::system_error &error) {
    if (error.code() != SVCMGR_ERROR_INVALID_OPERATION) throw;
    for (const NamedModel &model : models) explain_refusal(session, model, must_be_installed);
    throw;
  }
  session.output().succeed("");
}

}  // namespace

Words usable_model_ids(Session &session) {
  Words ids;
  for (const svcmgr::ModelInfo &model :
       request_models(session, korvane_svcmgr_ai_request_usable_model_list)) {
    ids.push_back(model.id().value_or(""));
  }
  return ids;
}

Words model_words(Session &session, const std::string &begun) {
  if (begun.find('@') == std::string::npos) {
    Words words = usable_model_ids(session);
    words.emplace_back(command_line::kNoSpace);
    return words;
  }
  const std::string model = parse_model(begun).id + '@';
  Words words;
  for (const std::string &version : versions_of(session, parse_model(begun).id)) {
    words.push_back(model + version);
  }
  return words;
}

void run_models_list(Session &session, const Arguments &arguments) {
  session.connect();
  const auto request = [&](korvane_svcmgr_ai_model_list_cb callback, void *data) {
    if (!arguments.category.empty()) {
      return korvane_svcmgr_ai_request_usable_model_list_with_category(
          callback, arguments.category.c_str(), data);
    }
    return arguments.description
               ? korvane_svcmgr_ai_request_usable_model_list_with_description(callback, data)
               : korvane_svcmgr_ai_request_usable_model_list(callback, data);
  };
  try {
    show_models(session, request_models(session, request));
  } catch (const std::system_error &error) {
    if (error.code() != SVCMGR_ERROR_INVALID_PARAMETER) throw;
    throw Failure(SVCMGR_ERROR_INVALID_PARAMETER,
                  "no installed agent provides the category \"" + arguments.category +
                      "\"; \"svcmgrctl models list\" shows the models of all agents");
  }
}

void run_models_versions(Session &session, const Arguments &arguments) {
  session.connect();
  try {
    show_models(session, request_versions(session, arguments.model));
  } catch (const std::system_error &error) {
    if (error.code() == SVCMGR_ERROR_INVALID_OPERATION) versions_of(session, arguments.model);
    throw;
  }
}

void run_models_update(Session &session, const Arguments &arguments) {
  std::vector<NamedModel> models;
  for (const std::string &word : arguments.models) models.push_back(parse_model(word));
  change_or_explain(session, arguments.models, models, korvane_svcmgr_ai_request_to_update, false);
}

void run_models_uninstall(Session &session, const Arguments &arguments) {
  std::vector<NamedModel> models;
  for (const std::string &id : arguments.models) models.push_back({id, ""});
  change_or_explain(session, arguments.models, models, korvane_svcmgr_ai_request_to_uninstall,
                    true);
}

}  // namespace korvane::svcmgrctl
