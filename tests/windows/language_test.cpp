// SPDX-License-Identifier: MIT
#include <QCoreApplication>
#include <QMessageBox>

#include "tests/windows/windows_fixture.h"

// Run once more for each of several languages of the texts, in an environment of another language.

namespace linux_host {
namespace {

// What Qt itself writes on a button.
std::string cancelOf(const std::string& language) {
  if (language == "he") return "ביטול";
  if (language == "de") return "Abbrechen";
  if (language == "pt_BR") return "Cancelar";
  return "Cancel";
}

TEST(LanguageTest, WindowsHaveTheDirectionOfTheTexts) {
  EXPECT_EQ(directionAtStart(),
            isWrittenFromRightToLeft(languageAtStart()) ? Qt::RightToLeft : Qt::LeftToRight);
}

TEST(LanguageTest, QtsOwnTextsAreInTheLanguageOfTheTexts) {
  QMessageBox box;
  EXPECT_EQ(box.addButton(QMessageBox::Cancel)->text().remove(u'&').toStdString(),
            cancelOf(languageAtStart()));
}

}  // namespace
}  // namespace linux_host
