#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <type_traits>

#include "crond/cronjob.h"
#include "tests/support/fake_clock.h"
#include "tests/support/forked.h"
#include "tests/support/scoped_tz.h"
#include "tests/support/scoped_value.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using namespace VUKO::VUKOCrond;

namespace {

struct NamedText {
    const char** pConstant;
    const char* szValue;
};

const NamedText TEXTS[] = {
    {&SZK_MINUTE, "Minute"},
    {&SZK_HOUR, "hour"},
    {&SZK_DAY, "day"},
    {&SZK_MONTH, "month"},
    {&SZK_WEEK, "week"},
    {&SZK_SERVICE_NAME, "vukocrond"},
    {&SZK_CRON_FOLDER_BUILT_IN, "builtin"},
    {&SZK_CRON_FOLDER_BUILT_IN_DYN, "builtin-dyn"},
    {&SZK_CRON_FOLDER_PKG, "pkg"},
    {&SZK_CRON_FOLDER_PKG_NONROOT, "pkg_nonroot"},
    {&SZF_CRON_FOLDER_BUILT_IN, "/usr/vuko/share/vukocron.d"},
    {&SZF_CRON_FOLDER_BUILT_IN_DYN, "/usr/vuko/etc/vukocron.d"},
    {&SZF_CRON_FOLDER_PKG, "/usr/local/etc/vukocron.d"},
    {&SZF_CRON_FOLDER_PKG_NONROOT, "/usr/local/etc/vukocron_nonroot.d"},
    {&SZF_CRON_RUNTIME_CONFIG, "/usr/vuko/etc/vukocrond.config"},
    {&SZF_CRON_RUNTIME_CONFIG_MIRROR, "/var/run/vukocrond.config"},
    {&SZF_CRON_SCHEDULE_TEMPLATE_CONFIG, "/usr/vuko/etc/vukocrond.st.config"},
    {&SZF_CRON_SCHEDULE_TEMPLATE_CONFIG_MIRROR, "/var/run/vukocrond.st.config"},
    {&SZF_PIDPATH, "/var/run/vukocrond.pid"},
    {&SZF_CRON_MEMLOG, "/tmp/vukocrond.log"},
    {&SZF_CRON_LOG_EXEC, "/var/log/vukocrond-execute.log"},
    {&SZF_TMP_BIN_FOLDER, "/tmp/vukocrond"},
};

/// Points a constant elsewhere for one test.
class Reassigned {
public:
    Reassigned(const char*& szConstant, const char* szValue) : _value(AfterFirstUse(szConstant), szValue) {}

private:
    /// The list of the field keys is built on its first use, which must not come while one of them is another.
    static const char*& AfterFirstUse(const char*& szConstant) {
        CronJob::GetAllScheduleTypes();
        return szConstant;
    }

    support::ScopedValue<const char*> _value;
};

/// Writes to an integer that must not be writable, and tells how the process fared.
support::ChildEnd WriteTo(const std::int32_t& iConstant) {
    return support::RunForked([&iConstant](int) {
        const struct rlimit noCore = {0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        struct sigaction action = {};
        action.sa_handler = SIG_DFL; // a sanitizer's handler would turn the signal into an exit
        sigaction(SIGSEGV, &action, nullptr);
        *const_cast<volatile std::int32_t*>(&iConstant) = 1;
        return 0;
    });
}

} // namespace

TEST(Constants, HaveTheirValues) {
    for (const NamedText& text : TEXTS) {
        EXPECT_STREQ(*text.pConstant, text.szValue);
    }
    EXPECT_EQ(SLEEP_TIME, 60);
    EXPECT_EQ(MAX_DELAY_BETWEEN_JOBS, 300);
}

TEST(Constants, ArePointersThatMayBeSetAnewAndIntegersThatMayNot) {
    static_assert(std::is_same_v<decltype(SZK_MINUTE), const char*>);
    static_assert(std::is_same_v<decltype(SZF_PIDPATH), const char*>);
    static_assert(std::is_same_v<decltype(SLEEP_TIME), const std::int32_t>);
    static_assert(std::is_same_v<decltype(MAX_DELAY_BETWEEN_JOBS), const std::int32_t>);
    for (const NamedText& text : TEXTS) {
        const Reassigned reassigned(*text.pConstant, "elsewhere");
        EXPECT_STREQ(*text.pConstant, "elsewhere") << text.szValue;
    }
}

TEST(Constants, KeepTheirIntegersInReadOnlyStorage) {
    EXPECT_EQ(WriteTo(SLEEP_TIME).iSignal, SIGSEGV);
    EXPECT_EQ(WriteTo(MAX_DELAY_BETWEEN_JOBS).iSignal, SIGSEGV);
    const std::int32_t iOnTheStack = 0;
    EXPECT_EQ(WriteTo(iOnTheStack).iExitStatus, 0) << "the harness itself must not be what dies";
}

TEST(Constants, GiveTheExecutionLogItsPathsAndItsLimit) {
    EXPECT_EQ(CronJob::gLogger._strLogPath, "/var/log/vukocrond-execute.log");
    EXPECT_EQ(CronJob::gLogger._strMemLogPath, "/tmp/vukocrond.log");
    EXPECT_EQ(CronJob::gLogger._ulMemLogLimitKB, 1024U);
}

TEST(Constants, AReassignedFieldKeyIsWhatLaterJobsAreParsedInto) {
    const Reassigned reassigned(SZK_HOUR, "hora");
    const CronJob job(unit::Document(unit::Crontab("1 2 3 4 5")));
    EXPECT_TRUE(job._bValid);
    EXPECT_EQ(unit::RangesOf(job, "hora"), "0:2..-1");
    EXPECT_EQ(unit::RangesOf(job, "hour"), "none");
}

TEST(Constants, AReassignedFieldKeyIsWhatTheDueTestReads) {
    const support::ScopedTz tz("UTC0");
    const support::FakeClock clock(0); // a Thursday, 1 January, 00:00
    const CronJob job =
        unit::JobWithSchedule(unit::FromText(R"({"Minute":[0],"hora":[0],"day":[1],"month":[1],"week":[4]})"));
    EXPECT_FALSE(job.IsOnScheduled());
    const Reassigned reassigned(SZK_HOUR, "hora");
    EXPECT_TRUE(job.IsOnScheduled());
}

TEST(Constants, AMinuteKeyWithoutItsCapitalWouldFollowTheRulesOfTheMonth) {
    const Reassigned reassigned(SZK_MINUTE, "minute");
    const CronJob job(unit::Document(unit::Definition()));
    EXPECT_EQ(unit::RangesOf(job, "minute"), "1:1..12");
    EXPECT_EQ(unit::Logged([] { CronJob{unit::Document(unit::Crontab("0 * * * *"))}; }),
              std::vector<std::string>{"<3>cronjob:166 parse error"});
}

TEST(Constants, AScheduleWithALowerCaseMinuteKeyIsNotReadBack) {
    const support::ScopedTz tz("UTC0");
    const support::FakeClock clock(0);
    const CronJob job =
        unit::JobWithSchedule(unit::FromText(R"({"minute":[-1],"hour":[-1],"day":[-1],"month":[-1],"week":[-1]})"));
    EXPECT_TRUE(job.GetGeneratedScheduleByType(SZK_MINUTE).empty());
    EXPECT_FALSE(job.IsOnScheduled());
    EXPECT_EQ(job.ToCurrentCrontabString(), "X -1 -1 -1 -1");
}
