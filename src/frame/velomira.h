/* The module's interface to the program that loads it, in plain C and C++: three functions, exported by plain
   name, with the platform's default calling convention. They may be called from any thread, one at a time;
   none of them raises. */
#ifndef VELOMIRA_H
#define VELOMIRA_H

/* NOLINTBEGIN(modernize-*): plain C, too. */
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Starts the worker. 0 when it runs afterwards, also when it ran before; 1 when the start failed, and then
   nothing of it is left: most likely the tool-gate device \\.\tsr_tg cannot be opened. Returns once the
   worker has opened it. */
int32_t StartTool(void);

/* Ends the worker and waits for it: a command that is under way is finished first, however long that takes.
   Always 0, also without a worker. The DLL may be unloaded afterwards, and only then. */
int32_t StopTool(void);

/* `code` 5 starts as StartTool does, 6 stops as StopTool does, every other code does nothing. Always 0. */
int32_t NotifyTool(uint32_t code);

#ifdef __cplusplus
}
#endif
/* NOLINTEND(modernize-*) */

#endif
