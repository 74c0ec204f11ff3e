// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/message_box.h"

#include <QMessageBox>

namespace linux_host {

void showWarning(QWidget* parent, WindowsServices& services, const char* key,
                 const std::string& details) {
  const auto text = [&services](const char* of) {
    return QString::fromStdString(services.localizedString(of));
  };
  auto* box = new QMessageBox(QMessageBox::Warning, text("Record Audio"), text(key),
                              QMessageBox::NoButton, parent);
  box->addButton(text("OK"), QMessageBox::AcceptRole);
  box->setAttribute(Qt::WA_DeleteOnClose);
  box->setTextFormat(Qt::PlainText);
  box->setInformativeText(QString::fromStdString(details));
  box->open();
}

}  // namespace linux_host
