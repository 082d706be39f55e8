/* Where the lists' own welcome and help texts lie; a test may point it elsewhere. */
#ifndef COMMANDS_REPLY_TEXT_H
#define COMMANDS_REPLY_TEXT_H

extern const char *fixed_control_root;

#endif
