#pragma once

#include "orv/lackofmemory.h"
#include "unit/lackofmemory/failingplaces.h"

#include <cstddef>
#include <functional>
#include <new>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace failingplaces {

// What a test has time for: of more places each second one is tried, or each third one, and so on.
constexpr std::size_t mostPlaces = 1000;

// That the work, wherever it finds no memory, either ends with std::bad_alloc or gets by and has the usual
// result; that all it has taken is given back, and that it can be done again.
inline void expectNoHarm(const std::function<std::string()>& work, std::size_t leastPlaces,
                         std::size_t most = mostPlaces) {
    constexpr int complaintsToShow = 5;
    std::string result;
    const Work take = [&] { result = work(); };
    take(); // what is made once for the whole process is there from now on
    const std::string usual = result;
    const std::vector<std::int64_t> places = placesOf(take);
    ASSERT_GE(places.size(), leastPlaces);
    int complaints = 0;
    const std::size_t step = (places.size() + most - 1) / most;
    for (std::size_t i = 0; i < places.size() && complaints < complaintsToShow; i += step) {
        const std::int64_t place = places[i];
        result = usual;
        result.shrink_to_fit();
        const std::int64_t before = blocks();
        bool ended = false;
        try {
            runFailing(place, take);
        } catch (const std::bad_alloc&) {
            ended = true;
        }
        EXPECT_EQ(blocks(), before) << "allocation " << place << (ended ? " ended it" : "");
        EXPECT_EQ(result, usual) << "allocation " << place;
        complaints += blocks() != before || result != usual ? 1 : 0;
    }
    EXPECT_EQ(work(), usual);
}

// That the work, wherever it finds no memory, ends with std::bad_alloc, or the program with it as
// orv::error::endOnLackOfMemory() says, or that it gets by and has the usual result. This is for what makes
// JSON, whose library allocates in destructors, from which nothing can be thrown. Each try has a process of
// its own.
inline void expectAnEnd(const std::function<std::string()>& work, std::size_t leastPlaces,
                        std::size_t most = mostPlaces) {
    enum End { Usual, Ended, Caught, Other }; // the second one is the program's own
    std::string result;
    const Work take = [&] { result = work(); };
    take();
    const std::string usual = result;
    const std::vector<std::int64_t> places = placesOf(take);
    ASSERT_GE(places.size(), leastPlaces);
    const std::size_t step = (places.size() + most - 1) / most;
    for (std::size_t i = 0; i < places.size(); i += step) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            orv::error::endOnLackOfMemory("test");
            (void)dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
            try {
                runFailing(places[i], take);
            } catch (const std::bad_alloc&) {
                _exit(Caught);
            }
            _exit(result == usual ? Usual : Other);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < Other)
            << "allocation " << places[i] << ", status " << status;
    }
}

} // namespace failingplaces
