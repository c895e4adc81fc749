// Shared helpers of the database-driven interface tests: test database paths, a FlexRay receive
// header for a slot and cycle, and a fixture that opens a database and closes it afterwards.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

#include "KeLoComm.h"
#include "dbapi/database_handles.h"

namespace kelo_dbapi_test {

inline std::string dataFile(const char* name) {
    return std::string(KELO_TEST_DATA_DIR) + "/fibex/" + name;
}
inline const std::string& queriesFile() {
    static const std::string path = dataFile("dbapi-queries.xml");
    return path;
}

// The 28-byte header KFr_Receive_Wrapper returns, with slot (offset 16) and cycle (19) set.
inline std::array<unsigned char, 28> rxHeader(std::uint16_t slot, std::uint8_t cycle,
                                              std::uint8_t words = 0) {
    std::array<unsigned char, 28> h{};
    h[16] = static_cast<unsigned char>(slot);
    h[17] = static_cast<unsigned char>(slot >> 8);
    h[19] = cycle;
    h[20] = words;
    return h;
}

// Opens the test database before each test and closes whatever is open afterwards.
class FibexDatabaseTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(KFr_Fibex_Open(queriesFile().c_str()), 0); }
    void TearDown() override { KFr_Fibex_Close(); }
};

}  // namespace kelo_dbapi_test
