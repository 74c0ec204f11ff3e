// SPDX-License-Identifier: MIT
#pragma once

#include <QAbstractNativeEventFilter>
#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <QWindow>

namespace linux_host {

// Whether anything of a window can be seen while it is shown. It cannot when it is minimised, when
// the compositor wants no pictures of it, or when an X server says that others cover all of it. An
// X server with a compositing manager says nothing about covered windows. Main thread.
class WindowExposure : public QObject, private QAbstractNativeEventFilter {
  Q_OBJECT

 public:
  // `window` outlives this object and is not shown yet.
  explicit WindowExposure(QWidget& window);
  ~WindowExposure() override;
  WindowExposure(const WindowExposure&) = delete;
  WindowExposure& operator=(const WindowExposure&) = delete;

  // False for a window that is not shown.
  [[nodiscard]] bool isOccluded() const { return isOccluded_; }

  bool eventFilter(QObject* watched, QEvent* event) override;

 signals:
  void changed();

 private:
  bool nativeEventFilter(const QByteArray& type, void* message, qintptr* result) override;
  void begin();
  void end();
  void update();

  QWidget& window_;
  QPointer<QWindow> handle_;  // what the window is to the screen, once it has been shown
  // Compositors tell that a window is covered only by not asking for its next picture.
  QTimer nextPicture_;
  bool wasExposed_ = false;  // since it was last shown
  bool isCovered_ = false;   // as the X server says
  bool isOccluded_ = false;
};

}  // namespace linux_host
