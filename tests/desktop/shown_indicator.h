// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "hosts/linux/indicator/indicator.h"
#include "tests/desktop/desktop_fixture.h"

namespace desktop_test {

// Records the tray's requests.
class RecordedRequests : public linux_host::Requests {
 public:
  void useActivationToken(const std::string& token) override {
    received.push_back("token " + token);
  }
  void activate() override { received.emplace_back("activate"); }
  void open(const std::vector<std::string>& paths) override {
    received.push_back("open " + paths.front());
  }
  void action(const std::string& name,
              std::function<void(linux_host::RequestResult)> done) override {
    received.push_back(name);
    done(linux_host::RequestResult::kDone);
    if (onAction) onAction(name);
  }
  void status(std::function<void(const std::string& line)> done) override { done("{}"); }

  std::vector<std::string> received;
  std::function<void(const std::string& name)> onAction;
};

// String tables of a language in which every text is its key in brackets.
class BracketBundle : public platform::Bundle {
 public:
  [[nodiscard]] std::string bundlePath() const override { return "/nonexistent"; }
  [[nodiscard]] std::optional<platform::Dictionary> infoDictionary() const override { return {}; }
  [[nodiscard]] std::optional<platform::Dictionary> localizedInfoDictionary() const override {
    return {};
  }
  [[nodiscard]] std::string localizedString(const std::string& key) const override {
    return "[" + key + "]";
  }
};

// The indicator of a program whose phase the test sets.
class IndicatorTest : public DesktopTest {
 protected:
  IndicatorTest() { makeIndicator(); }
  ~IndicatorTest() override { indicator_.reset(); }

  void makeIndicator() {
    indicator_.reset();
    indicator_ = std::make_unique<linux_host::Indicator>(
        bus_.get(), requests_, strings_, RA_BUILT_ICONS,
        [this](bool present) { trays_.push_back(present); });
  }
  void show() { indicator_->activationPolicyDidChange(platform::ActivationPolicy::kRegular); }
  void hide() { indicator_->activationPolicyDidChange(platform::ActivationPolicy::kProhibited); }
  void setIcon(const char* name) {
    indicator_->applicationIconDidChange(
        std::make_shared<const platform::Image>(platform::Image{name}));
  }
  void record(const std::string& time) { indicator_->toolDataDidChange({1, "", "MenuIcon", time}); }
  void rest() { indicator_->toolDataDidChange({0, "", "", ""}); }

  RecordedRequests requests_;
  BracketBundle strings_;
  std::vector<bool> trays_;  // the indicator's reports about trays
  std::unique_ptr<linux_host::Indicator> indicator_;
};

}  // namespace desktop_test
