// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/remote_control.h"
#include "suite/environment.h"

namespace contract {

// The desktop's other programs. Main thread.
class Desktop {
 public:
  virtual ~Desktop() = default;
  // What the host had them open, as URLs, and what it had the file browser show.
  virtual std::vector<std::string> openedURLs() = 0;
  virtual std::vector<std::vector<std::string>> shownFiles() = 0;
  // Whether there is a program for the settings of privacy or sound, and how often it was started.
  virtual void setHasPrivacySettings(bool has) = 0;
  virtual int privacySettingsOpened() = 0;
};

// Who and what surrounds an application on its machine. Main thread.
class Surroundings {
 public:
  virtual ~Surroundings() = default;

  // Launches the application with those paths to open and runs it until it has ended. Once.
  virtual void run(std::shared_ptr<platform::ApplicationDelegate> delegate,
                   std::shared_ptr<platform::RemoteControl> remote,
                   const std::vector<std::string>& pathsToOpen) = 0;
  // The user starts the running application again: with paths to open, or by a click.
  virtual void startAgain(const std::vector<std::string>& pathsToOpen) = 0;

  // The first line of each notification that the user sees, and all that is to be read in the one
  // that begins with a line, its title first.
  virtual std::vector<std::string> shownNotifications() = 0;
  virtual std::string shownText(const std::string& firstLine) = 0;
  enum class Act { kClick, kPressButton, kClose };
  // What the user does with the notification that begins with that line.
  virtual void act(const std::string& firstLine, Act act) = 0;

  // From the first call on there are other programs.
  virtual Desktop& desktop() = 0;
  // What the system says of this application and microphones, and what the user says when asked.
  virtual void setMicrophonePermission(platform::AuthorizationStatus status, bool userAgrees) = 0;

  // Whether the user grants administrator rights when asked.
  virtual void setGrantsRights(bool grants) = 0;
  // Each program that was started with them, with its arguments.
  virtual std::vector<std::vector<std::string>> programsStartedWithRights() = 0;
  // Whether the system obeys when it is asked to restart, and how often it was asked.
  virtual void setRestarts(bool obeys) = 0;
  virtual int restartsAskedFor() = 0;
  // Installs an application; returns its path.
  virtual std::string installApplication(const std::string& bundleIdentifier) = 0;
};

// A host under the contract suite, and the world around it: what a port promises to notice or to
// survive is made to happen here. Each host implements it once (memory_rig.cpp, linux_rig.cpp). One
// for each test. Main thread.
class ContractRig {
 public:
  virtual ~ContractRig() = default;
  virtual suite::Environment environment() = 0;
  // From the first call on there are people and services around the application.
  virtual Surroundings& surroundings() = 0;

  // Runs the main loop until `condition` holds. False when it does not within ten seconds of the
  // host's own time.
  virtual bool runUntil(const std::function<bool()>& condition) = 0;
  // Runs the main loop for so long, of the host's own time.
  virtual void pass(double seconds) = 0;
  // So much of the host's time goes by while the main loop gets no turn.
  virtual void keepBusy(double seconds) = 0;

  // A folder of the test's own, empty at first, without a trailing slash.
  virtual std::string folder() = 0;
  // Another one, on another file system where this machine has two.
  virtual std::string folderElsewhere() = 0;
  // What a file holds; null when there is none.
  virtual std::optional<std::string> contents(const std::string& path) = 0;
  // From now on a file of the test's cannot grow beyond so many bytes; null: it can.
  virtual void limitFiles(std::optional<std::size_t> bytes) = 0;
  // What the next start of the application would read of its settings; null when there is nothing.
  virtual std::optional<platform::Value> storedSetting(const std::string& key) = 0;

  // Plugs in a microphone of two channels at 48 kHz that sends samples (of whatever sound), under
  // that display name. Returns its unique id, when the host lists the device.
  virtual std::string plugInMicrophone(const std::string& name) = 0;
  // Plugs in a stereo output device. Returns its unique id, when the host lists the device.
  virtual std::string plugInSpeakers(const std::string& name) = 0;
  // Moves the mixer's slider of a microphone, 0 to 1, and mutes it or not. The host hears of it.
  virtual void setLevel(const std::string& uniqueID, float volume, bool isMuted) = 0;
  // Returns at once; the host hears of it.
  virtual void unplug(const std::string& uniqueID) = 0;
};

// A screen, and the user in front of it. Controls go by the names of their outlets. Main thread.
class Screen {
 public:
  virtual ~Screen() = default;
  // The user picks that entry of a menu, presses a button, or leaves the window by its title bar.
  virtual void pick(const std::string& outlet, int index) = 0;
  virtual void click(const std::string& outlet) = 0;
  virtual void leaveWindow() = 0;
  // Takes the window out of the user's sight without hiding it, or shows it again.
  virtual void coverWindow(bool isCovered) = 0;
  // Presses a button while another window has the keyboard: the click may only bring its window to
  // the front.
  virtual void clickFromBehind(const std::string& outlet) = 0;
  // Rests the pointer on a control; with an empty name, on none.
  virtual void pointAt(const std::string& outlet) = 0;
  // Whether the pointer is the hand that stands for links.
  virtual bool isPointerAHand() = 0;
  // What the user reads in a text field.
  virtual std::string shownText(const std::string& outlet) = 0;

  // Calls `act` once the next alert is shown, while it waits.
  virtual void onAlert(std::function<void()> act) = 0;
  // How the user answers that alert.
  virtual void pressInAlert(const std::string& button) = 0;
  virtual void closeAlert() = 0;
};

// From now on the rig's host has a screen. Only for programs that test windows; the rig outlives
// it.
std::unique_ptr<Screen> makeScreen(ContractRig& rig);

// The rig of the host that this program tests.
std::unique_ptr<ContractRig> makeRig();

}  // namespace contract
