#include "valtrix_socklib.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "fault.h"
#include "valtrix_socklib_expect.h"

namespace {

constexpr int REMOVE = 0;
constexpr int ADD = 1;

std::vector<int> members(const fd_set &set) {
    std::vector<int> found;
    for (int fd = 0; fd < FD_SETSIZE; ++fd)
        if (FD_ISSET(fd, &set))
            found.push_back(fd);
    return found;
}

/// A set in a block of its own, so that a sanitizer sees every step beyond it.
std::unique_ptr<fd_set> set_of(const std::vector<int> &fds) {
    auto set = std::make_unique<fd_set>();
    FD_ZERO(set.get());
    for (const int fd : fds)
        FD_SET(fd, set.get());
    return set;
}

/// A pipe that is readable once something was written.
struct channel {
    channel() {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        reader.reset(ends[0]);
        writer.reset(ends[1]);
    }
    void fill() const {
        EXPECT_EQ(write(writer, "x", 1), 1);
    }
    descriptor reader;
    descriptor writer;
};

int closed_descriptor() {
    const channel gone;
    return gone.reader;
}

class SocklibSelect : public testing::Test {
protected:
    void TearDown() override {
        clear_faults();
    }

    /// Waits at most `seconds` for a list of descriptors, in a block of its own size; `set` then holds who is readable.
    int wait_for(const std::vector<int> &list, int seconds = 0) {
        auto exact = std::make_unique<int[]>(list.size());
        std::copy(list.begin(), list.end(), exact.get());
        timeval limit{seconds, 0};
        return socklib_read_select(exact.get(), static_cast<int>(list.size()), &limit, set.get());
    }

    void expect_bad_descriptor(const std::vector<int> &list) {
        expect_lines(3, {"socklib_read_select: Error in select: 9:Bad file descriptor"},
                     [this, &list] { EXPECT_EQ(wait_for(list), -1); });
    }

    channel a;
    channel b;
    channel c;
    std::unique_ptr<fd_set> set = set_of({0, 5, FD_SETSIZE - 1});  // what it holds before does not count
};

// A list of descriptors

TEST_F(SocklibSelect, OneReadableDescriptor) {
    a.fill();
    expect_no_line([this] { EXPECT_EQ(wait_for({a.reader}), 1); });
    EXPECT_EQ(members(*set), (std::vector<int>{a.reader}));
}

TEST_F(SocklibSelect, TheReadableOnesOfMany) {
    a.fill();
    c.fill();
    for (const std::vector<int> &order :
         {std::vector<int>{a.reader, b.reader, c.reader}, std::vector<int>{c.reader, b.reader, a.reader}}) {
        EXPECT_EQ(wait_for(order), 2);
        EXPECT_EQ(members(*set), (std::vector<int>{a.reader, c.reader}));
    }
}

TEST_F(SocklibSelect, TheSameDescriptorTwiceIsOne) {
    a.fill();
    EXPECT_EQ(wait_for({a.reader, a.reader}), 1);
}

TEST_F(SocklibSelect, NoDescriptorsAreATimeOut) {
    timeval at_once{0, 0};
    expect_no_line([this, &at_once] {
        EXPECT_EQ(socklib_read_select(nullptr, 0, &at_once, set.get()), 0);
        EXPECT_EQ(members(*set), std::vector<int>{});
    });
    set = set_of({5});
    EXPECT_EQ(socklib_read_select(nullptr, -1, &at_once, set.get()), 0);
    EXPECT_EQ(members(*set), std::vector<int>{});
}

TEST_F(SocklibSelect, TimeOutIsNoFailure) {
    expect_no_line([this] {
        EXPECT_EQ(wait_for({a.reader, b.reader}), 0);
        EXPECT_EQ(members(*set), std::vector<int>{});
    });
}

TEST_F(SocklibSelect, TimeOutIsTheCallers) {
    timeval limit{0, 2000};
    const int list[] = {a.reader};
    EXPECT_EQ(socklib_read_select(list, 1, &limit, set.get()), 0);
    EXPECT_EQ(limit.tv_sec, 0);
    EXPECT_EQ(limit.tv_usec, 0);  // the kernel counts it down
}

TEST_F(SocklibSelect, WithoutATimeOutItWaitsForever) {
    a.fill();
    const int list[] = {a.reader};
    EXPECT_EQ(socklib_read_select(list, 1, nullptr, set.get()), 1);
}

TEST_F(SocklibSelect, OnlyReadingCounts) {
    EXPECT_EQ(wait_for({a.writer}), 0);
}

TEST_F(SocklibSelect, ClosedDescriptorIsAFailure) {
    const int gone = closed_descriptor();
    a.fill();
    expect_bad_descriptor({gone});
    expect_bad_descriptor({a.reader, gone});
}

TEST_F(SocklibSelect, FailureHasItsNumberAndText) {
    expect_lines(3, {"socklib_read_select: Error in select: " + std::to_string(EINTR) + ":Interrupted system call"},
                 [this] {
                     fail_nth_call("select", 1, EINTR);
                     EXPECT_EQ(wait_for({a.reader}), -1);
                 });
    expect_lines(3, {"socklib_read_select: Error in select: " + std::to_string(ENOMEM) + ":Cannot allocate memory"},
                 [this] {
                     fail_nth_call("select", 1, ENOMEM);
                     EXPECT_EQ(wait_for({a.reader}), -1);
                 });
}

TEST_F(SocklibSelect, ListWithADescriptorThatNoSetHoldsIsRefused) {
    a.fill();
    fail_every_call("select", EIO);
    for (const int fd : {FD_SETSIZE, FD_SETSIZE + 1, 100000, INT32_MAX, -1, INT32_MIN}) {
        expect_bad_descriptor({fd});
        expect_bad_descriptor({a.reader, fd});
        expect_bad_descriptor({fd, a.reader});
    }
    EXPECT_EQ(faults_fired("select"), 0);
}

TEST_F(SocklibSelect, HighestDescriptorThatASetHoldsIsTaken) {
    const descriptor last(dup2(a.reader, FD_SETSIZE - 1));
    ASSERT_EQ(last, FD_SETSIZE - 1);
    a.fill();
    EXPECT_EQ(wait_for({last}), 1);
    EXPECT_EQ(members(*set), (std::vector<int>{FD_SETSIZE - 1}));
    set = set_of({last});
    EXPECT_EQ(socklib_read_select_new(last, nullptr, set.get()), 1);
    EXPECT_EQ(members(*set), (std::vector<int>{FD_SETSIZE - 1}));
}

// A prepared set

TEST_F(SocklibSelect, PreparedSetHoldsTheReadableOnesAfterwards) {
    a.fill();
    c.fill();
    expect_no_line([this] {
        set = set_of({a.reader, b.reader, c.reader});
        EXPECT_EQ(socklib_read_select_new(c.reader, nullptr, set.get()), 2);
        EXPECT_EQ(members(*set), (std::vector<int>{a.reader, c.reader}));
    });
}

TEST_F(SocklibSelect, PreparedSetIsAskedUpToTheHighestOnly) {
    c.fill();
    set = set_of({a.reader, c.reader});
    timeval at_once{0, 0};
    EXPECT_EQ(socklib_read_select_new(c.reader - 1, &at_once, set.get()), 0);
}

TEST_F(SocklibSelect, PreparedSetTimesOut) {
    expect_no_line([this] {
        set = set_of({a.reader});
        timeval at_once{0, 0};
        EXPECT_EQ(socklib_read_select_new(a.reader, &at_once, set.get()), 0);
        EXPECT_EQ(members(*set), std::vector<int>{});
        EXPECT_EQ(socklib_read_select_new(-1, &at_once, set.get()), 0);  // an empty one
    });
}

TEST_F(SocklibSelect, PreparedSetWithAClosedDescriptorFails) {
    const int gone = closed_descriptor();
    expect_lines(3, {"socklib_read_select_new: Error in select: 9:Bad file descriptor"}, [this, gone] {
        set = set_of({gone});
        EXPECT_EQ(socklib_read_select_new(gone, nullptr, set.get()), -1);
    });
}

TEST_F(SocklibSelect, HighestDescriptorBeyondAnySetIsRefused) {
    fail_every_call("select", EIO);
    for (const int highest : {FD_SETSIZE, 100000, INT32_MAX}) {
        expect_lines(3, {"socklib_read_select_new: Error in select: 9:Bad file descriptor"}, [this, highest] {
            set = set_of({a.reader});
            EXPECT_EQ(socklib_read_select_new(highest, nullptr, set.get()), -1);
        });
    }
    EXPECT_EQ(faults_fired("select"), 0);
}

// Keeping a set

class SocklibUpdate : public testing::Test {
protected:
    /// Starts with {3, 5, 9}.
    int update(int mode, int fd) {
        return socklib_update_sock_info(mode, fd, set.get(), &highest);
    }

    void expect_refused(const std::string &message, int mode, int fd, fd_set *fds, int *old) {
        expect_lines(3, {"socklib_update_sock_info: " + message},
                     [=] { EXPECT_EQ(socklib_update_sock_info(mode, fd, fds, old), -1); });
        EXPECT_EQ(members(*set), (std::vector<int>{3, 5, 9}));
        EXPECT_EQ(highest, 9);
    }

    std::unique_ptr<fd_set> set = set_of({3, 5, 9});
    int highest = 9;
};

TEST_F(SocklibUpdate, AddingAHigherOneRaisesTheHighest) {
    expect_no_line([this] { EXPECT_EQ(update(ADD, 12), 0); });
    EXPECT_EQ(members(*set), (std::vector<int>{3, 5, 9, 12}));
    EXPECT_EQ(highest, 12);
}

TEST_F(SocklibUpdate, AddingALowerOneKeepsTheHighest) {
    EXPECT_EQ(update(ADD, 0), 0);
    EXPECT_EQ(update(ADD, 8), 0);
    EXPECT_EQ(members(*set), (std::vector<int>{0, 3, 5, 8, 9}));
    EXPECT_EQ(highest, 9);
}

TEST_F(SocklibUpdate, AddingAMemberChangesNothing) {
    EXPECT_EQ(update(ADD, 9), 0);
    EXPECT_EQ(update(ADD, 3), 0);
    EXPECT_EQ(members(*set), (std::vector<int>{3, 5, 9}));
    EXPECT_EQ(highest, 9);
}

TEST_F(SocklibUpdate, AddingToAnEmptySet) {
    set = set_of({});
    highest = -1;
    EXPECT_EQ(update(ADD, 0), 0);
    EXPECT_EQ(members(*set), (std::vector<int>{0}));
    EXPECT_EQ(highest, 0);
}

TEST_F(SocklibUpdate, TheLastThatASetHolds) {
    EXPECT_EQ(update(ADD, FD_SETSIZE - 1), 0);
    EXPECT_EQ(members(*set), (std::vector<int>{3, 5, 9, FD_SETSIZE - 1}));
    EXPECT_EQ(highest, FD_SETSIZE - 1);
    EXPECT_EQ(update(REMOVE, FD_SETSIZE - 1), 0);
    EXPECT_EQ(members(*set), (std::vector<int>{3, 5, 9}));
    EXPECT_EQ(highest, 9);
}

TEST_F(SocklibUpdate, RemovingTheHighestLowersItToTheNext) {
    expect_no_line([this] { EXPECT_EQ(update(REMOVE, 9), 0); });
    EXPECT_EQ(members(*set), (std::vector<int>{3, 5}));
    EXPECT_EQ(highest, 5);
    EXPECT_EQ(update(REMOVE, 5), 0);
    EXPECT_EQ(highest, 3);
}

TEST_F(SocklibUpdate, RemovingAnotherKeepsTheHighest) {
    EXPECT_EQ(update(REMOVE, 3), 0);
    EXPECT_EQ(members(*set), (std::vector<int>{5, 9}));
    EXPECT_EQ(highest, 9);
}

TEST_F(SocklibUpdate, RemovingWhatIsNotThereChangesNothing) {
    EXPECT_EQ(update(REMOVE, 4), 0);
    EXPECT_EQ(update(REMOVE, 100), 0);
    EXPECT_EQ(members(*set), (std::vector<int>{3, 5, 9}));
    EXPECT_EQ(highest, 9);
}

TEST_F(SocklibUpdate, RemovingTheOnlyOneLeavesNoHighest) {
    set = set_of({0});
    highest = 0;
    EXPECT_EQ(update(REMOVE, 0), 0);
    EXPECT_EQ(members(*set), std::vector<int>{});
    EXPECT_EQ(highest, -1);
    EXPECT_EQ(update(REMOVE, 0), 0);
    EXPECT_EQ(highest, -1);
}

TEST_F(SocklibUpdate, RemovingWithAHighestBeyondAnySetReadsTheSetOnly) {
    for (const int wrong : {FD_SETSIZE, INT32_MAX}) {
        highest = wrong;
        EXPECT_EQ(update(REMOVE, 3), 0);
        EXPECT_EQ(highest, 9);
    }
    highest = INT32_MIN;
    EXPECT_EQ(update(REMOVE, 3), 0);
    EXPECT_EQ(highest, -1);
}

TEST_F(SocklibUpdate, UnknownModeIsRefused) {
    for (const int mode : {-1, 2, INT32_MAX})
        expect_refused("Invalid input argument; mode = " + std::to_string(mode), mode, 4, set.get(), &highest);
}

TEST_F(SocklibUpdate, MissingSetIsRefused) {
    for (const int mode : {ADD, REMOVE})
        expect_refused("Invalid input argument; fds = NULL", mode, 4, nullptr, &highest);
}

TEST_F(SocklibUpdate, MissingHighestIsRefused) {
    for (const int mode : {ADD, REMOVE})
        expect_refused("Invalid input argument; old_sock_highest = NULL", mode, 4, set.get(), nullptr);
}

TEST_F(SocklibUpdate, NegativeDescriptorIsRefused) {
    for (const int mode : {ADD, REMOVE}) {
        expect_refused("Invalid input argument; new_sockfd(-1) < 0", mode, -1, set.get(), &highest);
        expect_refused("Invalid input argument; new_sockfd(-2147483648) < 0", mode, INT32_MIN, set.get(), &highest);
    }
}

TEST_F(SocklibUpdate, DescriptorThatNoSetHoldsIsRefused) {
    for (const int mode : {ADD, REMOVE}) {
        expect_refused("Invalid input argument; new_sockfd(1024) >= 1024", mode, FD_SETSIZE, set.get(), &highest);
        expect_refused("Invalid input argument; new_sockfd(2147483647) >= 1024", mode, INT32_MAX, set.get(), &highest);
    }
}

TEST_F(SocklibUpdate, TheFirstWrongArgumentIsNamed) {
    expect_refused("Invalid input argument; mode = 7", 7, -1, nullptr, nullptr);
    expect_refused("Invalid input argument; fds = NULL", ADD, -1, nullptr, nullptr);
    expect_refused("Invalid input argument; old_sock_highest = NULL", ADD, -1, set.get(), nullptr);
}

}  // namespace
