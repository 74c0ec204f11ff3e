// SPDX-License-Identifier: MIT
#include <adwaita.h>

// The least that a program with a window of GTK 4 and libadwaita needs.
int main() {
  adw_init();
  GtkWidget* window = adw_window_new();
  gtk_window_set_default_size(GTK_WINDOW(window), 400, 300);
  gtk_window_present(GTK_WINDOW(window));
  for (;;) g_main_context_iteration(nullptr, TRUE);
}
