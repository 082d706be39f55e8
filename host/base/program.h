/* What both programs are like from their first line on. */
#ifndef HOST_BASE_PROGRAM_H
#define HOST_BASE_PROGRAM_H

/* New files are open to owner and group as the lists' are (file-creation mask 017), and what is
   written to somebody who has gone is an error and not the end. */
void begin_program();

#endif
