// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

#include "platform/file_url.h"
#include "tests/contract/contract_rig.h"
#include "tests/memory_host/memory_controls.h"
#include "tests/memory_host/memory_host.h"

// The in-memory host under the contract suite: its clock moves only here.

namespace contract {
namespace {

constexpr double kPatience_s = 10;
constexpr double kStep_s = 0.001;
constexpr const char* kFolder = "/contract";
constexpr const char* kOtherFolder = "/elsewhere";

class MemoryDesktop : public Desktop {
 public:
  explicit MemoryDesktop(memory_host::MemoryWorkspace& workspace) : workspace_(workspace) {}
  std::vector<std::string> openedURLs() override {
    std::vector<std::string> urls;
    for (const std::string& path : workspace_.opened)
      urls.push_back(platform::fileURLWithPath(path));
    urls.insert(urls.end(), workspace_.openedURLs.begin(), workspace_.openedURLs.end());
    return urls;
  }
  std::vector<std::vector<std::string>> shownFiles() override { return workspace_.revealed; }
  void setHasPrivacySettings(bool has) override { workspace_.hasPrivacySettings = has; }
  int privacySettingsOpened() override { return workspace_.privacySettingsOpened; }

 private:
  memory_host::MemoryWorkspace& workspace_;
};

class MemorySurroundings : public Surroundings {
 public:
  explicit MemorySurroundings(memory_host::MemoryHost& memory) : memory_(memory) {}

  void run(std::shared_ptr<platform::ApplicationDelegate> delegate,
           std::shared_ptr<platform::RemoteControl>,
           const std::vector<std::string>& pathsToOpen) override {
    delegate_ = std::move(delegate);
    memory_.application.delegate = delegate_.get();
    memory_.application.launch(pathsToOpen);
    for (double passed_s = 0; !memory_.application.ended; passed_s += kStep_s) {
      if (passed_s > kLongestRun_s) throw std::runtime_error("the application does not end");
      memory_.runLoop.advance(kStep_s);
    }
    // As a host does before its process ends.
    memory_.runLoop.settle();
    static_cast<void>(memory_.userDefaults.synchronize());
    memory_.application.delegate = nullptr;
    delegate_.reset();
  }
  void startAgain(const std::vector<std::string>& pathsToOpen) override {
    memory_.dispatch.main->async([this, pathsToOpen] {
      // An alert is raised instead.
      if (pathsToOpen.empty() && !memory_.alerts.isWaiting()) {
        delegate_->applicationShouldHandleReopen(areWindowsVisible());
      }
      for (const std::string& path : pathsToOpen) delegate_->application(path);
    });
  }

  std::function<bool()> areWindowsVisible = [] { return false; };

  std::vector<std::string> shownNotifications() override {
    std::vector<std::string> lines;
    for (const auto& notification : memory_.userNotificationCenter.showing) {
      lines.push_back(firstLineOf(*notification));
    }
    return lines;
  }
  std::string shownText(const std::string& firstLine) override {
    for (const auto& shown : memory_.userNotificationCenter.showing) {
      if (firstLineOf(*shown) != firstLine) continue;
      return shown->title.value_or("") + "\n" + shown->informativeText + "\n" + shown->details;
    }
    return {};
  }
  void act(const std::string& firstLine, Act act) override {
    auto& showing = memory_.userNotificationCenter.showing;
    const auto found = std::ranges::find_if(
        showing, [&](const auto& notification) { return firstLineOf(*notification) == firstLine; });
    if (found == showing.end()) throw std::logic_error("no notification says " + firstLine);
    if (act == Act::kClose) {
      showing.erase(found);
      return;
    }
    memory_.dispatch.main->async([this, notification = *found, act] {
      using Type = platform::UserNotificationActivationType;
      memory_.userNotificationCenter.activate(
          notification, act == Act::kClick ? Type::kContentsClicked : Type::kActionButtonClicked);
    });
  }

  Desktop& desktop() override { return desktop_; }
  void setMicrophonePermission(platform::AuthorizationStatus status, bool userAgrees) override {
    memory_.capture.authorization = status;
    memory_.capture.userAgrees = userAgrees;
  }
  void setGrantsRights(bool grants) override {
    memory_.authorization.copyRightsStatus = grants ? platform::noErr : -60006;
  }
  std::vector<std::vector<std::string>> programsStartedWithRights() override {
    return memory_.authorization.started;
  }
  void setRestarts(bool obeys) override {
    memory_.appleEvents.sendStatus = obeys ? platform::noErr : -128;
  }
  int restartsAskedFor() override { return memory_.appleEvents.restarts; }
  std::string installApplication(const std::string& bundleIdentifier) override {
    auto& services = memory_.launchServices;
    services.identifier = bundleIdentifier;
    services.paths.push_back("/opt/application" + std::to_string(services.paths.size() + 1));
    return services.paths.back();
  }

 private:
  static constexpr double kLongestRun_s = 60;

  static std::string firstLineOf(const platform::UserNotification& notification) {
    return notification.informativeText.substr(0, notification.informativeText.find('\n'));
  }

  memory_host::MemoryHost& memory_;
  MemoryDesktop desktop_{memory_.workspace};
  std::shared_ptr<platform::ApplicationDelegate> delegate_;
};

class MemoryScreen : public Screen {
 public:
  MemoryScreen(memory_host::MemoryHost& memory, MemorySurroundings& surroundings)
      : memory_(memory) {
    memory_.alerts.hasScreen = true;
    surroundings.areWindowsVisible = [this] {
      const auto shown = window_.lock();
      return shown != nullptr && shown->window->visible;
    };
    interface_.installIn(memory_.interfaceLoader);
    memory_.interfaceLoader.recipe =
        [this, build = memory_.interfaceLoader.recipe](
            const std::string& name,
            platform::InterfaceOwner& owner) -> std::shared_ptr<platform::Window> {
      if (build(name, owner) == nullptr) return nullptr;
      // The window alone keeps its controls.
      const auto made = std::move(interface_.windows.back());
      interface_.windows.clear();
      window_ = made;
      return {made, made->window.get()};
    };
  }
  ~MemoryScreen() override {
    memory_.interfaceLoader.recipe = nullptr;
    memory_.alerts.onShow = nullptr;
  }
  MemoryScreen(const MemoryScreen&) = delete;
  MemoryScreen& operator=(const MemoryScreen&) = delete;

  void pick(const std::string& outlet, int index) override {
    if (outlet != "audioSource") throw std::logic_error("nobody picks from " + outlet);
    window()->pickAudioSource(index);
  }
  void click(const std::string& outlet) override {
    if (outlet != "outputFolderLink") throw std::logic_error("nobody clicks " + outlet);
    window()->clickOutputFolder();
  }
  void leaveWindow() override { window()->clickDone(); }
  void coverWindow(bool isCovered) override { window()->window->setCovered(isCovered); }
  void clickFromBehind(const std::string& outlet) override {
    if (button(outlet)->clickPresses(false)) click(outlet);
  }
  void pointAt(const std::string& outlet) override {
    handsBefore_ = memory_.cursor.pointingHandCount;
    if (!outlet.empty()) button(outlet)->hover(window()->window->visible);
  }
  bool isPointerAHand() override { return memory_.cursor.pointingHandCount > handsBefore_; }
  std::string shownText(const std::string& outlet) override {
    if (outlet != "audioWarning") throw std::logic_error("nobody reads " + outlet);
    const auto field = window()->audioWarning;
    return field->isHidden() ? "" : field->value;
  }

  void onAlert(std::function<void()> act) override {
    memory_.alerts.onShow = [act = std::move(act)](const platform::Alert&) { act(); };
  }
  void pressInAlert(const std::string& button) override {
    const platform::Alert& alert = memory_.alerts.shown.back();
    const auto found = std::ranges::find(alert.buttons, button);
    if (found != alert.buttons.end()) {
      answer(static_cast<int>(found - alert.buttons.begin()));
    } else if (button == alert.extraButton) {
      memory_.alerts.answers.push_back(platform::kAlertExtraButtonReturn);
    } else {
      throw std::logic_error("the alert has no button " + button);
    }
  }
  void closeAlert() override {
    answer(std::max(static_cast<int>(memory_.alerts.shown.back().buttons.size()) - 1, 0));
  }

 private:
  void answer(int button) {
    memory_.alerts.answers.push_back(platform::kAlertFirstButtonReturn + button);
  }
  std::shared_ptr<memory_host::MemoryButton> button(const std::string& outlet) {
    if (outlet != "outputFolderLink") throw std::logic_error("nobody points at " + outlet);
    return window()->outputFolderLink;
  }
  std::shared_ptr<memory_host::MemoryPreferencesWindow> window() {
    auto found = window_.lock();
    if (found == nullptr) throw std::logic_error("there is no window");
    return found;
  }

  memory_host::MemoryHost& memory_;
  memory_host::MemoryPreferencesInterface interface_;
  std::weak_ptr<memory_host::MemoryPreferencesWindow> window_;
  int handsBefore_ = 0;
};

class MemoryRig : public ContractRig {
 public:
  MemoryRig() {
    memory_.fileManager.folders.insert(kFolder);
    memory_.fileManager.folders.insert(kOtherFolder);
    memory_.userAccount.existing.insert(kFolder);
    memory_.fileManager.movesOpenFiles = std::getenv("RA_CANNOT_MOVE_OPEN_FILES") == nullptr;
    memory_.interruptedRecordings.goLive();
    memory_.capture.goLive(memory_.runLoop, memory_.dispatch);
    memory_.audioUnits.goLive(memory_.audioHardware, [this](std::function<void()> cycle) {
      const auto timer = memory_.runLoop.scheduledTimer(
          memory_host::MemoryAudioUnits::kPeriod_s, {}, true,
          [cycle = std::move(cycle)](const platform::TimerPtr&) { cycle(); });
      return [timer] { timer->invalidate(); };
    });
    memory_.audioHardware.setList<platform::AudioDeviceID>(
        platform::kAudioObjectSystemObject, global(platform::kAudioHardwarePropertyDevices), {});
    memory_.audioHardware.setDefaultOutput(platform::kAudioObjectUnknown);
    memory_.application.missingImages.insert("no such image");
    memory_.alerts.hasScreen = false;
    memory_.interfaceLoader.recipe = [](const auto&, auto&) { return nullptr; };
  }
  ~MemoryRig() override { memory_.runLoop.clear(); }

  memory_host::MemoryHost& memory() { return memory_; }
  suite::Environment environment() override { return memory_.environment; }
  Surroundings& surroundings() override { return surroundings_; }
  MemorySurroundings& memorySurroundings() { return surroundings_; }

  bool runUntil(const std::function<bool()>& condition) override {
    for (double passed_s = 0; passed_s < kPatience_s; passed_s += kStep_s) {
      memory_.runLoop.settle();
      if (condition()) return true;
      memory_.runLoop.advance(kStep_s);
    }
    return condition();
  }
  void pass(double seconds) override { memory_.runLoop.advance(seconds); }
  void keepBusy(double seconds) override {
    memory_.clock.now_ns += static_cast<std::uint64_t>(std::llround(seconds * 1e9));
  }

  std::string folder() override { return kFolder; }
  std::string folderElsewhere() override { return kOtherFolder; }
  std::optional<std::string> contents(const std::string& path) override {
    const auto found = memory_.fileManager.files.find(path);
    if (found == memory_.fileManager.files.end()) return std::nullopt;
    if (memory_.fileManager.isAwaitingMove(path)) return "";  // the name alone
    return found->second->contents;
  }
  void limitFiles(std::optional<std::size_t> bytes) override {
    std::size_t used_bytes = 0;
    for (const auto& [path, file] : memory_.fileManager.files) used_bytes += file->contents.size();
    memory_.userDefaults.isDiskFull = bytes == std::size_t{0};
    auto& room = memory_.fileManager.freeSpace_bytes;
    room = bytes ? std::optional(*bytes - std::min(*bytes, used_bytes)) : std::nullopt;
  }

  std::optional<platform::Value> storedSetting(const std::string& key) override {
    const auto found = memory_.userDefaults.onDisk.find(key);
    if (found == memory_.userDefaults.onDisk.end()) return std::nullopt;
    return found->second;
  }

  std::string plugInMicrophone(const std::string& name) override {
    memory_.capture.connect(plugIn(name, true), name);
    return name;
  }
  std::string plugInSpeakers(const std::string& name) override { return plugIn(name, false); }
  void setLevel(const std::string& uniqueID, float volume, bool isMuted) override {
    const platform::AudioDeviceID device = devices_.at(uniqueID);
    const auto set = [&](std::uint32_t selector, auto value) {
      memory_.audioHardware.setValue(device, memory_host::sideAddress(selector, true), value);
    };
    set(platform::kAudioDevicePropertyVolumeScalar, volume);
    set(platform::kAudioDevicePropertyMute, std::uint32_t{isMuted});
  }
  void unplug(const std::string& uniqueID) override {
    memory_.audioHardware.removeObject(devices_.at(uniqueID));
    memory_.capture.disconnect(uniqueID);
  }

 private:
  static platform::AudioObjectPropertyAddress global(std::uint32_t selector) {
    return {selector, platform::kAudioObjectPropertyScopeGlobal,
            platform::kAudioObjectPropertyElementMaster};
  }
  // A stereo device, whose unique id is its name.
  std::string plugIn(const std::string& name, bool isInput) {
    auto& hardware = memory_.audioHardware;
    const platform::AudioDeviceID device = 100 + static_cast<unsigned>(devices_.size());
    devices_[name] = device;
    hardware.addDevice(device, name);
    if (isInput) {
      hardware.setValue(platform::kAudioObjectSystemObject,
                        global(platform::kAudioHardwarePropertyDefaultInputDevice), device);
    }
    hardware.setStreamConfiguration(device, isInput, {2});
    hardware.setStreamConfiguration(device, !isInput, {});
    hardware.setDeviceTiming(device, isInput, 0, 1024);
    hardware.setValue(device, global(platform::kAudioDevicePropertyNominalSampleRate), 48000.0);
    hardware.setValue(
        device, memory_host::sideAddress(platform::kAudioDevicePropertyActualSampleRate, isInput),
        48000.0);
    // A header that says two, and so many descriptions of five words.
    std::vector<std::uint32_t> layout(3 + 2 * 5);
    layout[2] = 2;
    hardware.setList(
        device,
        memory_host::sideAddress(platform::kAudioDevicePropertyPreferredChannelLayout, isInput),
        layout);
    return name;
  }

  memory_host::MemoryHost memory_;
  MemorySurroundings surroundings_{memory_};
  std::map<std::string, platform::AudioDeviceID> devices_;
};

}  // namespace

std::unique_ptr<Screen> makeScreen(ContractRig& rig) {
  auto& own = dynamic_cast<MemoryRig&>(rig);
  return std::make_unique<MemoryScreen>(own.memory(), own.memorySurroundings());
}

std::unique_ptr<ContractRig> makeRig() {
  return std::make_unique<MemoryRig>();
}

}  // namespace contract
