/* What the tests of the confirmation database share: a list in Tokyo that confirms for three days.
 */
#ifndef TESTS_UNIT_STORE_CONFIRM_TEST_H
#define TESTS_UNIT_STORE_CONFIRM_TEST_H

#include <string.h>

#include <string>

#include "store/confirm.h"
#include "tests/support/local_time.h"
#include "tests/unit/store/control_fault.h"
#include "tests/unit/store/store_test.h"

inline const char *const id = "0123456789ABCDEF";

class Confirm : public StoreTest
{
  protected:
    Confirm()
    {
        set_zone("Asia/Tokyo");
        list.job()->settings.confirmation = 3;
    }

    int add(const std::string &address) { return add_cnfrmdb(list.job(), address.c_str(), id); }
    std::string find(const std::string &address)
    {
        char found[CONFIRM_ID_SIZE];
        memset(found, '#', sizeof(found));
        const int result = get_cnfrmdb(list.job(), address.c_str(), found);
        EXPECT_EQ(found[0] != '\0' ? 1 : 0, result);
        return found;
    }

    TempList list;
};

#endif
