#pragma once

#include "unit/lackofmemory/failingplaces.h"

#include <cstddef>
#include <functional>
#include <new>
#include <string>

#include <gtest/gtest.h>

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

} // namespace failingplaces
