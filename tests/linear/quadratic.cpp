/* Two bad parsers that the counting must catch. */
#include <string.h>

#include "tests/linear/steps.h"

int quadratic_by_itself(const char *text)
{
    int count = 0;
    for (; *text != '\0'; ++text)
        for (const char *rest = text; *rest != '\0'; ++rest)
            if (*rest == 'x') ++count;
    return count;
}

int quadratic_by_library(const char *text)
{
    int count = 0;
    for (; *text != '\0'; ++text)
        if (strchr(text, 'x') != nullptr) ++count;
    return count;
}
