// SPDX-License-Identifier: MIT
#include <QApplication>
#include <QWidget>

// The least that a program with a window of Qt Widgets needs.
int main(int argc, char** argv) {
  const QApplication application(argc, argv);
  QWidget window;
  window.resize(400, 300);
  window.show();
  return QApplication::exec();
}
