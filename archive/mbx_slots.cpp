/* Per-thread slot accessors of the driver interface; this archive keeps nothing behind them. */
#include "mlist/archive.h"

static int g_tls = -1;

int mb_tls_idx(void)
{
    return 0;
}

int mb_tls_wk(void)
{
    return 0;
}

int mb_gtls(void)
{
    return g_tls;
}
