/* Names and small helpers. */
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/fault_os.h"
#include "tests/unit/archive/box.h"

TEST(IndexName, IsWrittenInModeOneAndElseStays)
{
    EXPECT_STREQ("/a/INBOX/#mix", mlmbx_idxname("/a/INBOX", 1));
    EXPECT_STREQ("/a/INBOX/#mix", mlmbx_idxname("/b", 0));
    EXPECT_STREQ("/b/#mix", list_mbx_idxname("/b", 1));
    EXPECT_STREQ("/b/#msg/7", list_mbx_uidname("/b", 7));
    EXPECT_STREQ("/b/#msg/4294967295", list_mbx_uidname("/b", 4294967295u));
    EXPECT_STREQ("/b/#msg/4294967295", mlmbx_idxname("/c", 2));
}

TEST(IndexName, ThatDoesNotFitIsEmpty)
{
    errno = 0;
    EXPECT_STREQ("", mlmbx_idxname(std::string(4091, 'x').c_str(), 1));
    EXPECT_EQ(ENAMETOOLONG, errno);
    EXPECT_EQ(4095u, strlen(mlmbx_idxname(std::string(4090, 'x').c_str(), 1)));
}

TEST(StatTime, IsMinusOneForAMissingFile)
{
    Box box;
    EXPECT_EQ(box.mtime(), stat_mtime(box.name("#mix").c_str()));
    EXPECT_EQ(-1, stat_mtime(box.name("none").c_str()));
}

TEST(BoundedCopy, AlwaysEndsWithNul)
{
    char to[4] = {'z', 'z', 'z', 'z'};
    sncpy(to, "abcdef", 4);
    EXPECT_STREQ("abc", to);
    sncpy(to, "x", 4);
    EXPECT_STREQ("x", to);
    sncpy(to, "abc", 1);
    EXPECT_STREQ("", to);
    to[0] = 'z';
    sncpy(to, "abc", 0);
    EXPECT_EQ('z', to[0]);
}

TEST(RealSize, IsAMultipleOfAKilobyte)
{
    static const struct {
        int size, real;
    } rows[] = {{0, 1024},    {1, 1024},  {1024, 1024},          {1025, 2048},
                {2048, 2048}, {-5, 1024}, {INT_MAX, 2147482624}, {2147482625, 2147482624}};
    for (const auto &row : rows)
        EXPECT_EQ(row.real, list_realsize(row.size)) << row.size;
}

TEST(SizeToCluster, CountsClustersAlsoWithoutAClusterSize)
{
    EXPECT_EQ(0, size2cluster(0));
    EXPECT_EQ(1, size2cluster(1));
    EXPECT_EQ(1, size2cluster(1024));
    EXPECT_EQ(2, size2cluster(1025));
    g_cluster_sz = 4096;
    EXPECT_EQ(1, size2cluster(4096));
    EXPECT_EQ(2, size2cluster(4097));
    g_cluster_sz = 0;
}

TEST(ThreadSlots, AreEmpty)
{
    EXPECT_EQ(0, mb_tls_idx());
    EXPECT_EQ(0, mb_tls_wk());
    EXPECT_EQ(-1, mb_gtls());
}

struct Pair {
    TempDir dir;
    std::string from = dir / "from", to = dir / "to";
    int in = -1, out = -1;
    Pair(const std::string &content, const std::string &before)
    {
        write_file(from, content);
        write_file(to, before);
        in = open(from.c_str(), O_RDONLY);
        out = open(to.c_str(), O_RDWR);
    }
    ~Pair()
    {
        close(in);
        close(out);
    }
};

TEST(CopyByDescriptor, CopiesToTheEndAndCutsTheRest)
{
    for (const size_t size : {0u, 1u, 8191u, 8192u, 8193u, 40000u}) {
        Pair pair(std::string(size, 'n'), std::string(50000, 'o'));
        EXPECT_EQ(1, mlmbx_copybyfd(pair.in, pair.out));
        EXPECT_EQ(std::string(size, 'n'), read_file(pair.to));
    }
}

TEST(CopyByDescriptor, AnswersZeroOnAnyFailure)
{
    for (const char *failing : {"read", "write", "ftruncate", "fsync"}) {
        Pair pair("new", "old");
        FaultOs fault;
        fault.before = [&](const std::string &call, const std::string &) {
            return call == failing ? EIO : 0;
        };
        EXPECT_EQ(0, mlmbx_copybyfd(pair.in, pair.out)) << failing;
    }
}

TEST(CopyByDescriptor, GoesOnAfterShortWrites)
{
    Pair pair(std::string(20000, 'n'), "");
    FaultOs fault;
    fault.short_write = 777;
    EXPECT_EQ(1, mlmbx_copybyfd(pair.in, pair.out));
    EXPECT_EQ(std::string(20000, 'n'), read_file(pair.to));
}
