// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/output_location_button.h"

#include <QDir>
#include <QFileDialog>
#include <QFileIconProvider>
#include <QFontMetrics>
#include <QStyleOptionButton>
#include <QStylePainter>
#include <utility>

#include "hosts/linux/windows_qt/appearance.h"
#include "hosts/linux/windows_qt/message_box.h"
#include "hosts/linux/windows_qt/portal_parent.h"

namespace linux_host {

PathButton::PathButton(QWidget* parent) : QPushButton(parent) {
  setLayoutDirection(Qt::LeftToRight);
}

void PathButton::paintEvent(QPaintEvent*) {
  QStylePainter painter(this);
  painter.setLayoutDirection(Qt::LeftToRight);
  QStyleOptionButton option;
  initStyleOption(&option);
  painter.drawControl(QStyle::CE_PushButton, option);
}

struct QtOutputLocationButton::Choice {
  Choice(Completion done, std::string folder, const QWidget* window)
      : completion(std::move(done)), before(std::move(folder)), parent(window) {}

  Completion completion;
  std::string before;
  const PortalParent parent;
};

QtOutputLocationButton::QtOutputLocationButton(QPushButton* button, WindowsServices& services,
                                               UserAct onClick)
    : QtView(button), services_(services) {
  QObject::connect(button, &QPushButton::clicked, button, [this, act = std::move(onClick)] {
    if (act && choice_ == nullptr) act(this);
  });
}

QtOutputLocationButton::~QtOutputLocationButton() {
  if (choice_ != nullptr) finish(true, {}, {});
}

QWidget* QtOutputLocationButton::window() const {
  return widget() != nullptr ? widget()->window() : nullptr;
}

void QtOutputLocationButton::updateState() {
  if (widget() == nullptr) return;
  auto* button = static_cast<QPushButton*>(widget());
  button->setIcon(legibleIcon(QIcon::fromTheme(QStringLiteral("folder"),
                                               QFileIconProvider().icon(QFileIconProvider::Folder)),
                              button->iconSize(), button->palette()));
  const auto folder = services_.outputLocation();
  if (!folder) {
    button->setText(QString::fromStdString(services_.localizedString("Choose a folder")));
    button->setToolTip({});
    button->setAccessibleDescription({});
    return;
  }
  const QString path = QString::fromStdString(*folder);
  QString shown = path;
  if (shown.startsWith(QDir::homePath() + u'/'))
    shown.replace(0, QDir::homePath().size(), QStringLiteral("~"));
  shown = singleLine(shown.toStdString());
  constexpr int kWidest_characters = 28;
  const int width = button->fontMetrics().averageCharWidth() * kWidest_characters;
  shown = button->fontMetrics().elidedText(shown, Qt::ElideMiddle, width);
  // An ampersand in a folder's name does not mark a mnemonic.
  button->setText(shown.replace(u'&', QStringLiteral("&&")));
  button->setToolTip(plainToolTip(path));
  button->setAccessibleDescription(path);
}

void QtOutputLocationButton::handleOutputLocationChanged(Completion completion) {
  if (choice_ != nullptr) {
    completion(true, 0, std::nullopt, {});
    return;
  }
  choice_ = std::make_shared<Choice>(std::move(completion), services_.outputLocation().value_or(""),
                                     window());
  askDesktop();
}

void QtOutputLocationButton::askDesktop() {
  services_.chooseFolder(choice_->parent.name(), services_.localizedString("Output folder"),
                         choice_->before,
                         [this, waiting = std::weak_ptr(choice_)](const FolderChoice& made) {
                           if (waiting.expired()) return;
                           if (made.offered) {
                             take(made.path.value_or(""));
                           } else {
                             askToolkit();
                           }
                         });
}

void QtOutputLocationButton::askToolkit() {
  auto* dialog =
      new QFileDialog(window(), QString::fromStdString(services_.localizedString("Output folder")),
                      QString::fromStdString(choice_->before));
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::Directory);
  dialog->setOption(QFileDialog::ShowDirsOnly);
  QObject::connect(dialog, &QDialog::finished, dialog,
                   [this, dialog, waiting = std::weak_ptr(choice_)](int result) {
                     if (waiting.expired()) return;
                     const QStringList chosen = dialog->selectedFiles();
                     const bool isChosen = result == QDialog::Accepted && !chosen.isEmpty();
                     take(isChosen ? chosen.front().toStdString() : std::string());
                   });
  dialog->open();
}

void QtOutputLocationButton::take(const std::string& path) {
  if (path.empty() || path == choice_->before) {
    finish(true, {}, {});
    return;
  }
  const std::string error = services_.setOutputLocation(path);
  updateState();
  if (error.empty()) {
    finish(true, {}, {{"Changed", true}});
    return;
  }
  showWarning(window(), services_, "The folder cannot be used.", error);
  finish(false, error, {{"Changed", false}});
}

void QtOutputLocationButton::finish(bool success, const std::string& error,
                                    const platform::Dictionary& details) {
  const auto finished = std::exchange(choice_, nullptr);
  finished->completion(success, success ? 0 : 1,
                       success ? std::nullopt : std::optional<std::string>(error), details);
}

}  // namespace linux_host
