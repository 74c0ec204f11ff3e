// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/language.h"

#include <QApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

namespace linux_host {

void applyLanguage(const std::string& language) {
  const QLocale locale(QString::fromStdString(language));
  QApplication::setLayoutDirection(locale.textDirection());
  auto* const translator = new QTranslator(qApp);
  // Qt's own texts are written in English.
  if (locale.language() != QLocale::English &&
      translator->load(locale, QStringLiteral("qtbase"), QStringLiteral("_"),
                       QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
    QCoreApplication::installTranslator(translator);
  }
}

}  // namespace linux_host
