/* deliver_once DIRECTORY MESSAGES MEMBERS KEEP: three postings to a list of that size, the last one
   between two calls that bench/count-calls looks for. */
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "bench/delivery_list.h"

int main(int count, char **words)
{
    if (count != 5) {
        fprintf(stderr, "Usage: deliver_once DIRECTORY MESSAGES MEMBERS KEEP\n");
        return 2;
    }
    WorkDirectory directory(words[1]);
    DeliveryList list(directory.path());
    list.make_archive(static_cast<uint32_t>(atol(words[2])));
    list.make_roster(static_cast<uint32_t>(atol(words[3])));
    list.set_keep(static_cast<uint32_t>(atol(words[4])));
    list.post();
    list.post();
    (void)access("/the-posting-begins", F_OK);
    list.post();
    (void)access("/the-posting-ends", F_OK);
    return 0;
}
