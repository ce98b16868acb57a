#pragma once

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace test {

// Says of standard error what a service manager says of a stream to its journal.
inline void makeJournalOfStandardError() {
    struct stat status {};
    ASSERT_EQ(fstat(STDERR_FILENO, &status), 0);
    setenv("JOURNAL_STREAM", (std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino)).c_str(),
           1);
}

} // namespace test
