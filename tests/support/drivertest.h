#ifndef TESTS_SUPPORT_DRIVERTEST_H
#define TESTS_SUPPORT_DRIVERTEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <authchipdriver/i2c.h>

#include "tests/support/consolelog.h"
#include "tests/support/driverlog.h"
#include "tests/support/fakebus.h"

namespace testsupport {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// The fake bus, with the console lines in its journal; no device is open yet.
class BusTest : public ::testing::Test
{
protected:
    Journal m_journal;
    FakeBus m_bus{m_journal};
    ConsoleLog m_console{m_journal};
};

/// The same with an open device; the journal begins after the opening, and has the drivers' log from DEBUG up.
class OpenBusTest : public BusTest
{
protected:
    OpenBusTest()
    {
        VorelKestrel::ACD::i2cInit(FakeBus::kDevice, FakeBus::kAddress);
        m_bus.forget();
    }

    std::vector<std::string> lines() const { return m_journal.only(Journal::Kind::Line); }

    DriverLog m_log{m_journal};
};

} // namespace testsupport

#endif
