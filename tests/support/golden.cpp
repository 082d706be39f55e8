#include "tests/support/golden.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include "tests/support/temp_list.h"

std::string visible(const std::string &text)
{
    std::string shown;
    for (const char c : text) {
        const unsigned char byte = static_cast<unsigned char>(c);
        char escaped[8] = {};
        if (c == '\n')
            shown += "\\n";
        else if (c == '\r')
            shown += "\\r";
        else if (c == '\t')
            shown += "\\t";
        else if (byte < ' ' || byte >= 0x7F) {
            snprintf(escaped, sizeof(escaped), "\\x%02x", byte);
            shown += escaped;
        } else
            shown += c;
    }
    return shown;
}

void expect_golden(const std::string &name, const std::string &text)
{
    const std::string path = std::string(MLIST_GOLDEN_DIR) + "/" + name;
    if (getenv("MLIST_REWRITE_GOLDEN") != nullptr) {
        write_file(path, text);
        ADD_FAILURE() << path << " written anew; run again without MLIST_REWRITE_GOLDEN";
        return;
    }
    ASSERT_TRUE(exists(path)) << path;
    EXPECT_EQ(read_file(path), text) << "compared with " << path;
}
