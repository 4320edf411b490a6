// What a program that was compiled against the header relies on.

#include <gtest/gtest.h>

#include <algorithm>
#include <type_traits>
#include <vector>

#include "crond/cronjob.h"
#include "logger/memorylogger.h"

using VUKO::MemoryLogger;

namespace {

using SharableMutex = boost::interprocess::interprocess_sharable_mutex;

static_assert(std::is_same_v<decltype(MemoryLogger::_ssLog), std::stringstream>);
static_assert(std::is_same_v<decltype(MemoryLogger::_strLogPath), std::string>);
static_assert(std::is_same_v<decltype(MemoryLogger::_strMemLogPath), std::string>);
static_assert(std::is_same_v<decltype(MemoryLogger::_ulMemLogLimitKB), unsigned long>);
static_assert(std::is_same_v<decltype(MemoryLogger::_mutexLog), SharableMutex>);
static_assert(std::is_same_v<decltype(MemoryLogger::_mutexMemLog), SharableMutex>);

static_assert(std::is_constructible_v<MemoryLogger, const std::string&, const std::string&, unsigned long>);
static_assert(!std::is_default_constructible_v<MemoryLogger>);
static_assert(!std::is_copy_constructible_v<MemoryLogger> && !std::is_copy_assignable_v<MemoryLogger>);
static_assert(!std::is_move_constructible_v<MemoryLogger> && !std::is_move_assignable_v<MemoryLogger>);
static_assert(std::has_virtual_destructor_v<MemoryLogger>);

static_assert(std::is_same_v<decltype(&MemoryLogger::SoftFlush), void (MemoryLogger::*)()>);
static_assert(std::is_same_v<decltype(&MemoryLogger::Flush), void (MemoryLogger::*)()>);
static_assert(std::is_same_v<decltype(&MemoryLogger::FlushAll), void (MemoryLogger::*)()>);
static_assert(std::is_same_v<decltype(&MemoryLogger::GetNewLine), std::string (MemoryLogger::*)()>);
static_assert(std::is_same_v<decltype(&VUKO::VUKOCrond::CronJob::FlushLog), void (*)()>);
static_assert(std::is_same_v<decltype(VUKO::VUKOCrond::CronJob::gLogger), MemoryLogger>);

/// Has operations of the same names. None of them may be called in place of the logger's own.
class Namesake : public MemoryLogger {
public:
    using MemoryLogger::MemoryLogger;
    void SoftFlush() { ++_iCalls; }
    void Flush() { ++_iCalls; }
    void FlushAll() { ++_iCalls; }
    std::string GetNewLine() { return std::to_string(++_iCalls); }
    int Calls() const { return _iCalls; }

private:
    int _iCalls = 0;
};

TEST(LoggerShape, KeepsItsMembersInTheDeclaredOrderBehindTheVirtualTablePointer) {
    const MemoryLogger logger("/nowhere/log", "/nowhere/staged", 1);
    const auto offset = [&logger](const void* pMember) {
        return static_cast<const char*>(pMember) - reinterpret_cast<const char*>(&logger);
    };
    const std::vector<std::ptrdiff_t> vecOffsets = {offset(&logger._ssLog),         offset(&logger._strLogPath),
                                                    offset(&logger._strMemLogPath), offset(&logger._ulMemLogLimitKB),
                                                    offset(&logger._mutexLog),      offset(&logger._mutexMemLog)};
    EXPECT_EQ(vecOffsets.front(), static_cast<std::ptrdiff_t>(sizeof(void*)));
    EXPECT_TRUE(std::is_sorted(vecOffsets.begin(), vecOffsets.end()));
    EXPECT_EQ(vecOffsets.back() + static_cast<std::ptrdiff_t>(sizeof(SharableMutex)),
              static_cast<std::ptrdiff_t>(sizeof(MemoryLogger)))
        << "something follows the last member";
}

TEST(LoggerShape, HasNoVirtualOperationButItsDestructor) {
    Namesake namesake("/nowhere/log", "/nowhere/staged", 1);
    MemoryLogger& logger = namesake;
    static_cast<void>(logger.GetNewLine());
    logger.SoftFlush();
    logger.Flush();
    logger.FlushAll();
    EXPECT_EQ(namesake.Calls(), 0);
}

TEST(LoggerShape, KeepsPathsAndLimitOpensNothingAndStartsUnlocked) {
    MemoryLogger logger("/nowhere/log", "/nowhere/staged", 42);
    EXPECT_EQ(logger._strLogPath, "/nowhere/log");
    EXPECT_EQ(logger._strMemLogPath, "/nowhere/staged");
    EXPECT_EQ(logger._ulMemLogLimitKB, 42U);
    EXPECT_EQ(logger._ssLog.str(), "");
    logger._ssLog << "in";
    std::string strOut;
    logger._ssLog >> strOut;
    EXPECT_EQ(strOut, "in");
    EXPECT_TRUE(logger._mutexLog.try_lock());
    EXPECT_TRUE(logger._mutexMemLog.try_lock());
    logger._mutexMemLog.unlock();
    logger._mutexLog.unlock();
}

} // namespace
