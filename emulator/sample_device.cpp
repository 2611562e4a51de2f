#include "sample_device.h"

#include <elf.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "json_file.h"

namespace korvane::emulator {

namespace {

namespace fs = std::filesystem;

constexpr char kVision[] = SVCMGR_VENDOR_PREFIX ".vision";
constexpr char kLanguage[] = SVCMGR_VENDOR_PREFIX ".language";
constexpr char kSpeech[] = SVCMGR_VENDOR_PREFIX ".speech";

/** The contents of a marker section, as stored in the file. */
struct Marker {
  char magic[6];
  std::array<std::uint16_t, 5> numbers;  ///< revision, API level, version major, minor, patch
};
static_assert(sizeof(Marker) == 16);

struct Elf32 {
  using Header = Elf32_Ehdr;
  using Section = Elf32_Shdr;
  static constexpr unsigned char kClass = ELFCLASS32;
  static constexpr std::uint16_t kMachine = EM_ARM;
};

struct Elf64 {
  using Header = Elf64_Ehdr;
  using Section = Elf64_Shdr;
  static constexpr unsigned char kClass = ELFCLASS64;
  static constexpr std::uint16_t kMachine = EM_AARCH64;
};

template <typename Type>
void append(std::string &bytes, const Type &value) {
  bytes.append(reinterpret_cast<const char *>(&value), sizeof(value));
}

/** The header, the marker, the section names, and the table of three sections. */
template <typename Elf>
std::string marked_elf(std::uint16_t api_level, std::array<std::uint16_t, 3> version) {
  const std::string names("\0.qel\0.shstrtab\0", 16);
  const Marker marker = {{'Q', 'E', 'L', 0, 0, 0},
                         {1, api_level, version[0], version[1], version[2]}};
  typename Elf::Header header = {};
  std::memcpy(header.e_ident, ELFMAG, SELFMAG);
  header.e_ident[EI_CLASS] = Elf::kClass;
  header.e_ident[EI_DATA] = ELFDATA2LSB;
  header.e_ident[EI_VERSION] = EV_CURRENT;
  header.e_type = ET_DYN;
  header.e_machine = Elf::kMachine;
  header.e_version = EV_CURRENT;
  header.e_ehsize = sizeof(header);
  header.e_shoff = sizeof(header) + sizeof(marker) + 16;
  header.e_shentsize = sizeof(typename Elf::Section);
  header.e_shnum = 3;
  header.e_shstrndx = 2;

  typename Elf::Section marker_section = {};
  marker_section.sh_name = 1;
  marker_section.sh_type = SHT_PROGBITS;
  marker_section.sh_offset = sizeof(header);
  marker_section.sh_size = sizeof(marker);
  marker_section.sh_addralign = 1;
  typename Elf::Section names_section = {};
  names_section.sh_name = 6;
  names_section.sh_type = SHT_STRTAB;
  names_section.sh_offset = sizeof(header) + sizeof(marker);
  names_section.sh_size = 16;
  names_section.sh_addralign = 1;

  std::string file;
  append(file, header);
  append(file, marker);
  file += names;
  append(file, typename Elf::Section{});
  append(file, marker_section);
  append(file, names_section);
  return file;
}

void write_file(const fs::path &file, const std::string &contents) {
  fs::create_directories(file.parent_path());
  std::ofstream stream(file, std::ios::binary);
  stream << contents;
  stream.close();
  if (!stream) throw std::runtime_error("cannot write " + file.string());
}

void install_package(const host::Device &device, const std::string &id, const char *version,
                     const Json &metadata) {
  write_json(device.packages_directory() / (id + ".json"),
             {{"id", id}, {"version", version}, {"metadata", metadata}});
}

void install_packages(const host::Device &device) {
  const Json none = Json::object();
  install_package(device, SVCMGR_APP_ID, "2.4.1", none);
  install_package(device, kSampleApplication, "1.0.0", none);
  install_package(device, kVision, "2.1.0", {{"ai-agent-category", "vision"}});
  install_package(device, kLanguage, "1.4.0", {{"ai-agent-category", "language"}});
  install_package(device, kSpeech, "0.9.2", {{"ai-agent-category", "speech"}});
}

void install_application(const host::Device &device) {
  const fs::path resources = device.resource_directory(kSampleApplication);
  const fs::path root = resources.parent_path();
  write_file(resources / "title.txt", "Viewer\n");
  write_file(root / "lib" / "libviewer.so", marked_elf<Elf32>(12, {3, 0, 9}));
  write_file(root / "bin" / "viewer", marked_elf<Elf64>(13, {3, 0, 154}));
}

using Texts = std::vector<std::string>;

Json model(const char *agent, const char *id, const char *title, const char *description,
           const char *installed, const Texts &versions, const Texts &applications = {}) {
  return {{"agent", agent},
          {"id", id},
          {"title", title},
          {"description", description},
          {"installed", installed},
          {"versions", versions},
          {"applications", applications}};
}

Json initial_state() {
  const Json models = {
      model(kVision, "vision.detect", "Object detection",
            "Finds people, animals and things in a picture.", "1.0.0", {"1.0.0", "1.1.0", "2.0.0"}),
      model(kVision, "vision.segment", "Segmentation", "Separates foreground from background.",
            "1.2.0", {"1.2.0", "1.3.0"}),
      model(kLanguage, "language.translate", "Translation",
            "Translates short texts between twelve languages.", "3.1.0", {"3.0.0", "3.1.0"}),
      model(kLanguage, "language.summarize", "Summaries", "Sums up a page in three sentences.",
            "0.8.0", {"0.8.0", "0.9.0"}, {kSampleApplication}),
      model(kSpeech, "speech.dictate", "Dictation", "Writes down what is said.", "1.0.0",
            {"1.0.0", "1.0.1"}),
  };
  return {{"agent_api_level", 13},
          {"license", "Sample agents.\nFree to use, copy and change for any purpose.\n"},
          {"available", {{kVision, "2.2.0"}, {kLanguage, "1.4.0"}, {kSpeech, "1.0.0"}}},
          {"models", models}};
}

void fill(const host::Device &device) {
  fs::create_directories(device.packages_directory());
  fs::create_directories(device.directory() / "service");
  device.run_directory();
  install_packages(device);
  install_application(device);
  write_json(device.directory() / "service" / "state.json", initial_state());
}

/**
 * A temporary folder in which the device is created before it is moved into place. Removed on
 * destruction.
 */
class Draft {
 public:
  explicit Draft(const fs::path &place) : place_(place), is_new_(!fs::exists(place)) {
    fs::remove_all(folder());
    fs::create_directories(folder());
  }
  Draft(const Draft &) = delete;
  Draft &operator=(const Draft &) = delete;
  ~Draft() {
    std::error_code ignored;
    fs::remove_all(folder(), ignored);
    if (is_new_) fs::remove(place_, ignored);  // which fails when the device is there
  }

  fs::path folder() const { return place_ / kName; }
  /** Whether the folder contains at most the draft of an interrupted run. */
  static bool is_alone_in(const fs::path &place) {
    const auto is_draft = [](const fs::path &entry) { return entry.filename() == kName; };
    return std::all_of(fs::directory_iterator(place), fs::directory_iterator(), is_draft);
  }
  /** Moves packages last: with that folder the directory counts as a device. */
  void take_place() const {
    for (const char *name : {"apps", "run", "service", "packages"}) {
      fs::rename(folder() / name, place_ / name);
    }
  }

 private:
  static constexpr char kName[] = ".draft";
  const fs::path place_;
  const bool is_new_;
};

}  // namespace

void create_sample_device(const host::Device &device) {
  if (fs::exists(device.packages_directory())) {
    throw std::runtime_error(device.directory().string() + " is a device already");
  }
  if (fs::is_directory(device.directory()) && !Draft::is_alone_in(device.directory())) {
    throw std::runtime_error(device.directory().string() +
                             " contains other files; choose a new or empty folder");
  }
  const Draft draft(device.directory());
  fill(host::Device(draft.folder()));
  draft.take_place();
}

}  // namespace korvane::emulator
