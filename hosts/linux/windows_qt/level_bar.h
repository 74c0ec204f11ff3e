// SPDX-License-Identifier: MIT
#pragma once

#include <QAccessibleWidget>
#include <QWidget>

namespace linux_host {

// A thin bar from quiet to full scale: green, amber from -12 dB, red from -3 dB.
class LevelBar : public QWidget {
  Q_OBJECT

 public:
  explicit LevelBar(QWidget* parent = nullptr);
  void setLevel(float peak);
  // How much of the bar is lit, 0 to 1.
  [[nodiscard]] float litShare() const;
  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  // The lit part in pixels of the screen.
  [[nodiscard]] int litPixels() const;

  float peak_ = 0;
};

// What screen readers get of the bar: how much of it is lit, from 0 to 100. It is there to be
// asked for; nobody wants to be told of every change.
class LevelBarAccessible : public QAccessibleWidget, public QAccessibleValueInterface {
 public:
  explicit LevelBarAccessible(LevelBar& bar)
      : QAccessibleWidget(&bar, QAccessible::ProgressBar), bar_(bar) {}

  void* interface_cast(QAccessible::InterfaceType type) override;
  [[nodiscard]] QVariant currentValue() const override;
  void setCurrentValue(const QVariant&) override {}
  [[nodiscard]] QVariant maximumValue() const override { return 100; }
  [[nodiscard]] QVariant minimumValue() const override { return 0; }
  [[nodiscard]] QVariant minimumStepSize() const override { return 1; }

 private:
  // Qt deletes this object when the widget is destroyed.
  const LevelBar& bar_;
};

}  // namespace linux_host
