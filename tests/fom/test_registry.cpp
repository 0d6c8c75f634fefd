// fom::Entry and fom::Manager on registries of the test's own: initial
// states, registration rules, ownership and descriptor numbering.
#include <TavrinFom.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "../../src/fom/descriptor_table.h"

namespace {

unsigned char buf[64];

TEST(FomEntry, InitialStateByAccessMode) {
    struct Case { int mode; bool noWrite, noRead; uint32_t length; };
    const Case cases[] = {{0, true, false, 40}, {1, false, true, 0}, {2, false, false, 40},
                          {3, false, false, 40}, {0x242, false, false, 40} /* O_RDWR|O_CREAT|O_TRUNC */};
    for (const Case& c : cases) {
        fom::Entry e(c.mode, buf, 100, 40, false, false);
        EXPECT_EQ(e.mode, c.mode);
        EXPECT_EQ(e.noWrite, c.noWrite) << c.mode;
        EXPECT_EQ(e.noRead, c.noRead) << c.mode;
        EXPECT_EQ(e.length, c.length) << c.mode;
        EXPECT_EQ(e.position, 0u);
        EXPECT_EQ(e.recordStart, 0u);
        EXPECT_EQ(e.recordEnd, 0xFFFFFFFFu);
        EXPECT_FALSE(e.recording);
        EXPECT_EQ(e.buffer, buf);
        EXPECT_EQ(e.capacity, 100u);
    }
    // The length never exceeds the buffer.
    EXPECT_EQ(fom::Entry(2, buf, 10, 99, true, true).length, 10u);
    fom::Entry flags(2, buf, 10, 0, true, true);
    EXPECT_TRUE(flags.recordOnly);
    EXPECT_TRUE(flags.external);
}

TEST(FomManager, RegistrationRules) {
    fom::Manager m;
    unsigned char other[8];
    EXPECT_FALSE(m.set("a", 2, buf, 10, 11, false, nullptr));  // length beyond capacity
    EXPECT_TRUE(m.set("a", 2, buf, 10, 10, false, nullptr));   // equal is fine
    fom::Entry* first = m.getEntry("a");
    ASSERT_NE(first, nullptr);
    first->position = 7;
    EXPECT_FALSE(m.set("a", 2, other, 8, 0, false, nullptr));  // no replacement
    EXPECT_EQ(m.getEntry("a"), first);
    EXPECT_EQ(first->buffer, buf);
    EXPECT_EQ(first->length, 10u);
    EXPECT_EQ(first->position, 7u);
    EXPECT_FALSE(m.set(nullptr, 2, buf, 10, 0, false, nullptr));
    EXPECT_FALSE(m.inEntrys(nullptr));
    EXPECT_EQ(m.getEntry(static_cast<const char*>(nullptr)), nullptr);
    if (sizeof(unsigned long) > 4) {  // the store is 32-bit
        EXPECT_FALSE(m.set("big", 2, buf, 0x100000000ul, 0, false, nullptr));
        EXPECT_FALSE(m.inEntrys("big"));
    }
    // Names are case-sensitive, byte strings; lookups never add keys.
    EXPECT_FALSE(m.inEntrys("A"));
    EXPECT_EQ(m.getEntry("missing"), nullptr);
    EXPECT_FALSE(m.inEntrys("missing"));
    EXPECT_EQ(m.entries.size(), 1u);
    EXPECT_TRUE(m.unset("a"));
    EXPECT_FALSE(m.unset("a"));
    EXPECT_TRUE(m.entries.empty());
}

TEST(FomManager, ExternalStorageIsTheCallersAndIsNeverFreed) {
    alignas(fom::Entry) unsigned char storage[sizeof(fom::Entry)];
    {
        fom::Manager m;
        ASSERT_TRUE(m.set("ext", 1, buf, 16, 5, true, storage));
        fom::Entry* e = m.getEntry("ext");
        EXPECT_EQ(static_cast<void*>(e), static_cast<void*>(storage));
        EXPECT_TRUE(e->external);
        EXPECT_EQ(e->length, 0u);  // write-only starts empty
        unsigned char before[sizeof storage];
        std::memcpy(before, storage, sizeof storage);
        EXPECT_TRUE(m.unset("ext"));
        EXPECT_EQ(std::memcmp(before, storage, sizeof storage), 0);
        // Registered again and left registered: the destructor must not
        // delete it (the sanitizer build catches a bad free).
        ASSERT_TRUE(m.set("ext", 1, buf, 16, 0, false, storage));
        ASSERT_TRUE(m.set("owned", 2, buf, 16, 0, false, nullptr));
        EXPECT_FALSE(m.getEntry("owned")->external);
    }
    SUCCEED();
}

TEST(FomManager, DescriptorNumbering) {
    fom::Manager m;
    EXPECT_EQ(m.maxFd(), -1);
    EXPECT_EQ(fom::allocateDescriptor(m, "x"), 0);
    EXPECT_EQ(fom::allocateDescriptor(m, "x"), 1);
    EXPECT_EQ(fom::allocateDescriptor(m, "y"), 2);
    EXPECT_TRUE(fom::releaseDescriptor(m, 1));
    EXPECT_FALSE(fom::releaseDescriptor(m, 1));
    EXPECT_EQ(fom::allocateDescriptor(m, "x"), 3);  // holes are not filled
    EXPECT_TRUE(fom::releaseDescriptor(m, 2));
    EXPECT_TRUE(fom::releaseDescriptor(m, 3));
    EXPECT_EQ(fom::allocateDescriptor(m, "x"), 1);  // one above the largest open
    EXPECT_EQ(m.descriptors.at(1), "x");
    EXPECT_FALSE(fom::releaseDescriptor(m, long(INT_MAX) + 1));
}

TEST(FomManager, DescriptorNumbersExhausted) {
    fom::Manager m;
    m.descriptors.emplace(INT_MAX, "x");
    EXPECT_EQ(m.maxFd(), INT_MAX);
    EXPECT_TRUE(fom::descriptorsExhausted(m));
    EXPECT_EQ(fom::allocateDescriptor(m, "x"), -1);
    EXPECT_EQ(m.descriptors.size(), 1u);
    EXPECT_TRUE(fom::releaseDescriptor(m, INT_MAX));
    EXPECT_EQ(fom::allocateDescriptor(m, "x"), 0);
}

TEST(FomManager, DescriptorFollowsTheNameNotTheEntry) {
    fom::Manager m;
    unsigned char second[4];
    ASSERT_TRUE(m.set("f", 2, buf, 10, 0, false, nullptr));
    const int fd = fom::allocateDescriptor(m, "f");
    EXPECT_EQ(m.getEntry(long(fd)), m.getEntry("f"));
    EXPECT_EQ(m.getEntry(long(fd) + 1), nullptr);
    EXPECT_EQ(m.getEntry(long(INT_MAX) + 1 + fd), nullptr);  // no truncation to int
    ASSERT_TRUE(m.unset("f"));
    EXPECT_EQ(m.getEntry(long(fd)), nullptr);
    EXPECT_EQ(m.descriptors.count(fd), 1u);
    ASSERT_TRUE(m.set("f", 2, second, 4, 0, false, nullptr));
    ASSERT_NE(m.getEntry(long(fd)), nullptr);
    EXPECT_EQ(m.getEntry(long(fd))->buffer, second);
}

TEST(FomRecording, EntryFormMarks) {
    fom::Entry e(2, buf, 200, 0, true, false);
    fom_startRecording(static_cast<fom::Entry*>(nullptr));  // nothing happens
    e.position = 8;
    fom_startRecording(&e);
    EXPECT_TRUE(e.recording);
    e.position = 108;
    fom_stopRecording(&e);
    EXPECT_FALSE(e.recording);
    EXPECT_EQ(e.recordStart, 8u);
    EXPECT_EQ(e.recordEnd, 108u);
    // Start and stop do not look at each other's state.
    e.position = 150;
    fom_startRecording(&e);
    EXPECT_EQ(e.recordEnd, 108u);
    fom::Entry fresh(2, buf, 200, 0, true, false);
    fresh.position = 5;
    fom_stopRecording(&fresh);
    EXPECT_EQ(fresh.recordStart, 0u);
    EXPECT_EQ(fresh.recordEnd, 5u);
}

}  // namespace
