/* A program of the guest tools in small: keeps the host's applications in the guest until somebody presses
 * Enter. */
#include <stdio.h>

#include "velomira.h"

int main(void) {
  if (StartTool() != 0) {
    fputs("The tool-gate device cannot be opened: is the driver there? Try again when it is.\n", stderr);
    return 1;
  }
  puts("Sharing follows the host. Press Enter to end it.");
  (void)getchar();
  return (int)StopTool(); /* returns when the command under way is done and the worker is gone */
}
