/* Failure texts as data: level, message number and format of one logged failure, for operations
   that differ in nothing else. */
#ifndef STORE_FAIL_TEXT_H
#define STORE_FAIL_TEXT_H

void a_text_takes_three_s_and_m(); /* not constant: calling it stops the compiler */

/* The format takes the list's name and up to two paths, all as %s, and errno as %m; the compiler
   refuses anything else. */
struct FailText {
    int level;
    int number;
    const char *text;

    consteval FailText(int log_level, int message_number, const char *format)
        : level(log_level), number(message_number), text(format)
    {
        int texts = 0;
        for (const char *p = format; *p != '\0'; ++p) {
            if (*p != '%') continue;
            ++p;
            if (*p == 's') ++texts;
            if ((*p != 's' && *p != 'm') || texts > 3) a_text_takes_three_s_and_m();
        }
    }
};

/* Logs the text.  Always -1; errno is kept. */
int log_failure(const FailText &fail, const char *list, const char *path = "",
                const char *second_path = "");

#endif
