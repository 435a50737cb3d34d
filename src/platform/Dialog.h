// Dialogs that ask the user from any thread: a window when a display is
// there, else a prompt on the process's controlling terminal.
#pragma once

#include <string>
#include <vector>

namespace tvxcore::platform {

// One answer of a choice: its label ("Ignore Once") and the letter that
// picks it on a terminal.
struct DialogButton {
  std::string label;
  char key;
};

// No dialog could be shown, or none was answered.
inline constexpr int kDialogNotAnswered = -1;

// Shows `text` under `title` with `buttons` and waits for an answer; returns
// the index of the button chosen. The forms, in order:
//   1. a window, when $DISPLAY or $WAYLAND_DISPLAY is set and `zenity` (or
//      else `kdialog`) is found on $PATH; `defaultButton` is its OK button;
//   2. a prompt on /dev/tty, when the process has a controlling terminal;
//      an empty line picks `defaultButton`, a letter or a label the others.
// A window that fails to open or is closed without an answer hands over to
// the terminal; end of input there, or no form at all, gives
// kDialogNotAnswered. Choosing `copyButton` (-1 for none) puts the text on
// the clipboard (wl-copy, xclip or xsel, when found) or writes it to the
// terminal again, and asks again. Blocks the calling thread only; prompts
// on the terminal take turns. Line ends "\r\n" are shown as "\n".
int ShowChoiceDialog(const std::string& title, const std::string& text,
                     const std::vector<DialogButton>& buttons, int defaultButton, int copyButton);

// Shows `text` under `title`: a window that waits for OK, else a few lines on
// the controlling terminal (without waiting), else nothing. Standard error is
// left to the host's own messages.
void ShowMessageDialog(const std::string& title, const std::string& text);

}  // namespace tvxcore::platform
