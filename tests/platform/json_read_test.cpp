#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <locale>
#include <random>

#include "platform/vukojson.h"
#include "tests/platform/errors.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace std::string_literals;
using support::TempDir;
using support::WithMarkedErrno;

constexpr std::size_t LIMIT = std::size_t{4} << 20;

class JsonRead : public testing::Test {
protected:
    bool Read(const std::string& strText) {
        support::WriteFile(_dir / "file", strText);
        return ReadPath(_dir / "file");
    }

    bool ReadPath(const std::string& strPath) {
        _jsRead = "untouched";
        return WithMarkedErrno([&] { return VUKO::JSON::fromFile(_jsRead, strPath); }, _iErrno);
    }

    void ExpectRead(const std::string& strText, const Json::Value& jsExpected) {
        EXPECT_TRUE(Read(strText)) << strText;
        EXPECT_EQ(_jsRead, jsExpected) << strText;
        EXPECT_EQ(_jsRead.type(), jsExpected.type()) << strText;
        EXPECT_EQ(_iErrno, support::ERRNO_MARK) << strText;
    }

    void ExpectRefused(const std::string& strPath, int iExpected) {
        EXPECT_FALSE(ReadPath(strPath)) << strPath;
        support::ExpectFailedWith(_iErrno, iExpected);
        EXPECT_EQ(_jsRead, Json::Value("untouched")) << strPath;
    }

    void ExpectNotJson(const std::string& strText, const std::string& strWhy) {
        EXPECT_FALSE(Read(strText)) << strWhy << ": " << strText;
        EXPECT_EQ(_iErrno, EBADMSG) << strWhy;
        EXPECT_EQ(VLIBCErrGet(), static_cast<unsigned>(EBADMSG)) << strWhy;
        EXPECT_EQ(_jsRead, Json::Value("untouched")) << strWhy;
    }

    TempDir _dir;
    Json::Value _jsRead;
    int _iErrno = 0;
};

TEST_F(JsonRead, TakesEveryKindOfDocument) {
    ExpectRead("null", Json::Value());
    ExpectRead(" true\n", true);
    ExpectRead("false", false);
    ExpectRead("\"\"", "");
    ExpectRead("{}", Json::objectValue);
    ExpectRead("[ ]", Json::arrayValue);
    ASSERT_TRUE(Read("\t{ \"a\" : [ 1 , { \"\" : null } ] ,\r\n \"b\":\"c\" } "));
    EXPECT_EQ(VUKO::JSON::toString(_jsRead), R"({"a":[1,{"":null}],"b":"c"})");
}

TEST_F(JsonRead, GivesNumbersTheKindThatHoldsThem) {
    ExpectRead("0", 0);
    ExpectRead("-0", 0);
    ExpectRead("-1", -1);
    ExpectRead("9223372036854775807", Json::Int64{9223372036854775807});
    ExpectRead("-9223372036854775808", Json::Value::minInt64);
    ExpectRead("9223372036854775808", Json::UInt64{9223372036854775808U});
    ExpectRead("18446744073709551615", Json::Value::maxUInt64);
    ExpectRead("18446744073709551616", 18446744073709551616.0);
    ExpectRead("-9223372036854775809", -9223372036854775809.0);
    ExpectRead("1.0", 1.0);
    ExpectRead("1e2", 100.0);
    ExpectRead("1.25E-1", 0.125);
    ExpectRead("-0.5e+1", -5.0);
    ExpectRead("0e0", 0.0);
    ExpectRead("1.7976931348623157e308", 1.7976931348623157e308);
}

TEST_F(JsonRead, ReadsEscapes) {
    ExpectRead(R"("\"\\\/\b\f\n\r\t")", "\"\\/\b\f\n\r\t");
    ExpectRead(R"("\u0041\u00e4\u20AC")", "A\xc3\xa4\xe2\x82\xac");
    ExpectRead(R"("\ud83d\uDE00")", "\xf0\x9f\x98\x80");
    ExpectRead(R"("\ud800\udc00\udbff\udfff")", "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf");
    ExpectRead(R"("\u07ff\u0800\uffff")", "\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf");
    ExpectRead(R"("a\u0000b")", "a\0b"s);
    ASSERT_TRUE(Read(R"({"\u0061\u0000":1})"));
    EXPECT_EQ(_jsRead.getMemberNames(), (std::vector<std::string>{"a\0"s}));
    ExpectRead("\"\x7f\"", "\x7f");
}

TEST_F(JsonRead, RefusesWhatIsNotJson) {
    for (const auto& [strText, strWhy] : std::vector<std::pair<std::string, std::string>>{
             {"", "nothing"},
             {" \n", "blanks alone"},
             {"\0"s, "a NUL alone"},
             {"1\0"s, "a NUL behind the document"},
             {"[\0]"s, "a NUL between"},
             {"\"a\0b\""s, "a NUL in a text"},
             {"01", "a leading zero"},
             {"-01", "a leading zero behind the sign"},
             {"00", "two zeros"},
             {"1.", "no digits behind the point"},
             {"1.e1", "no digits between point and exponent"},
             {"[-]", "a sign alone in an array"},
             {"-", "a sign alone"},
             {"+1", "a plus"},
             {".5", "no digits before the point"},
             {"--1", "two signs"},
             {"- 1", "a sign apart"},
             {"1e", "no exponent"},
             {"1e+", "no digits in the exponent"},
             {"1.2.3", "two points"},
             {"1e5e5", "two exponents"},
             {"0x10", "hexadecimal"},
             {"1_000", "an underscore"},
             {"1e999", "more than a double holds"},
             {"-1e999", "less than a double holds"},
             {std::string(400, '9'), "more digits than a double holds"},
             {"NaN", "not a number"},
             {"Infinity", "infinity"},
             {"-Infinity", "negative infinity"},
             {"nan", "not a number"},
             {"True", "a capital"},
             {"tru", "half a word"},
             {"truex", "a longer word"},
             {"nullnull", "two words"},
             {"\"", "an open text"},
             {"\"a", "an open text"},
             {"\"a\\\"", "an open text behind an escape"},
             {"\"\\", "half an escape"},
             {"'a'", "single quotes"},
             {"\"a\tb\"", "a tab in a text"},
             {"\"a\nb\"", "a line end in a text"},
             {"\"\x1f\"", "a control character in a text"},
             {R"("\x")", "an unknown escape"},
             {R"("\a")", "an unknown escape"},
             {R"("\u12")", "two digits"},
             {R"("\u12g4")", "a digit that is none"},
             {R"("\u 123")", "a blank digit"},
             {R"("\u+123")", "a signed digit"},
             {R"("\u-123")", "a signed digit"},
             {R"("\u0x12")", "a prefixed digit"},
             {R"("\ud800")", "half a pair"},
             {R"("\ud800x")", "half a pair"},
             {R"("\ud800\n")", "half a pair"},
             {R"("\ud800\u0041")", "half a pair before another character"},
             {R"("\ud800\ud800")", "two first halves"},
             {R"("\udc00")", "a second half alone"},
             {R"({"\udc00":1})", "a second half alone in a name"},
             {"[", "an open array"},
             {"]", "a closed array"},
             {"[1", "an open array"},
             {"[1,]", "a comma at the end"},
             {"[,1]", "a comma at the start"},
             {"[1,,2]", "two commas"},
             {"[1 2]", "no comma"},
             {"[1}", "the wrong end"},
             {"[1]]", "an end too many"},
             {"{", "an open object"},
             {"{\"a\"}", "no value"},
             {"{\"a\":}", "no value"},
             {"{\"a\" 1}", "no colon"},
             {"{\"a\":1,}", "a comma at the end"},
             {"{,}", "a comma alone"},
             {"{1:2}", "a number for a name"},
             {"{a:1}", "a name without quotes"},
             {"{'a':1}", "a name in single quotes"},
             {"{\"a\":1,\"a\":2}", "a name twice"},
             {R"({"a":1,"\u0061":2})", "a name twice, once escaped"},
             {"{\"a\":1]", "the wrong end"},
             {"1 2", "two documents"},
             {"{}{}", "two documents"},
             {"/*c*/1", "a comment"},
             {"1//c", "a comment"},
             {"#c\n1", "a comment"},
             {"{\"a\":1,/*c*/\"b\":2}", "a comment before a member"},
             {"{//c\n}", "a comment alone"},
             {"[1/*c*/]", "a comment behind a value"},
             {"\xef\xbb\xbf{}", "a byte order mark"},
             {"\f1", "a form feed"},
             {"1\v", "a vertical tab"},
             {"\xc2\xa0"
              "1",
              "a blank that is none"},
         }) {
        ExpectNotJson(strText, strWhy);
    }
}

TEST_F(JsonRead, RefusesWhatIsNotUtf8) {
    for (const char* const szBytes : {"\x80",
                                      "\xbf",
                                      "\xff",
                                      "\xfe",
                                      "\xc0\x80",
                                      "\xc1\xbf",
                                      "\xc3",
                                      "\xc3\xc3",
                                      "\xc3(",
                                      "\xe0\x80\x80",
                                      "\xe0\x9f\xbf",
                                      "\xe2\x82",
                                      "\xe2(\xa1",
                                      "\xe2\x82(",
                                      "\xed\xa0\x80",
                                      "\xed\xbf\xbf",
                                      "\xf0\x80\x80\x80",
                                      "\xf0\x8f\xbf\xbf",
                                      "\xf0\x9f\x98",
                                      "\xf0\x9f\x98(",
                                      "\xf4\x90\x80\x80",
                                      "\xf5\x80\x80\x80",
                                      "\xf8\x88\x80\x80\x80"}) {
        ExpectNotJson("\""s + szBytes + "\"", "not UTF-8");
        ExpectNotJson("{\""s + szBytes + "\":1}", "not UTF-8 in a name");
        ExpectNotJson(szBytes, "not UTF-8 outside");
    }
    for (const char* const szBytes :
         {"\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xec\xbf\xbf", "\xed\x9f\xbf", "\xee\x80\x80", "\xef\xbf\xbf",
          "\xf0\x90\x80\x80", "\xf3\xbf\xbf\xbf", "\xf4\x8f\xbf\xbf"}) {
        ExpectRead("\""s + szBytes + "\"", szBytes);
    }
}

std::string Nested(const std::string& strOpen, const std::string& strClose, int iDepth) {
    std::string strText;
    for (int i = 0; i < iDepth; ++i) {
        strText += strOpen;
    }
    strText += "1";
    for (int i = 0; i < iDepth; ++i) {
        strText += strClose;
    }
    return strText;
}

TEST_F(JsonRead, GoesDownToADepthOf128) {
    EXPECT_TRUE(Read(Nested("[", "]", 128)));
    EXPECT_TRUE(Read(Nested("{\"a\":", "}", 128)));
    EXPECT_TRUE(Read(Nested("[{\"a\":", "}]", 64)));
    EXPECT_TRUE(Read("[" + Nested("[", "]", 127) + "," + Nested("[", "]", 127) + "]"));
    ExpectNotJson(Nested("[", "]", 129), "too deep");
    ExpectNotJson(Nested("{\"a\":", "}", 129), "too deep");
    ExpectNotJson(Nested("[{\"a\":", "}]", 65), "too deep");
    ExpectNotJson(std::string(200000, '['), "far too deep");
    ExpectNotJson("[" + Nested("{\"a\":[", "]}", 2000), "far too deep");
}

TEST_F(JsonRead, TakesFourMebibytesAndNoByteMore) {
    const std::string strLargest = "\"" + std::string(LIMIT - 2, 'x') + "\"";
    EXPECT_TRUE(Read(strLargest));
    EXPECT_EQ(_jsRead.asString().size(), LIMIT - 2);
    support::WriteFile(_dir / "large", strLargest + " ");
    ExpectRefused(_dir / "large", EFBIG);
    ASSERT_EQ(truncate((_dir / "large").c_str(), off_t{1} << 40), 0);
    ExpectRefused(_dir / "large", EFBIG);
}

TEST_F(JsonRead, ReadsFilesThatTellNoSize) {
    EXPECT_TRUE(ReadPath("/proc/sys/kernel/pid_max")); // a regular file of 0 bytes, says stat()
    EXPECT_TRUE(_jsRead.isInt());
}

TEST_F(JsonRead, RefusesWhatIsNoRegularFile) {
    ASSERT_EQ(mkfifo((_dir / "pipe").c_str(), 0600), 0);
    ASSERT_EQ(symlink("loop", (_dir / "loop").c_str()), 0);
    const int iSocket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string strSocket = _dir / "socket";
    strSocket.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(iSocket, reinterpret_cast<const struct sockaddr*>(&address), sizeof(address)), 0);
    ExpectRefused(_dir / "pipe", EINVAL); // and does not wait for a writer
    ExpectRefused("/dev/zero", EINVAL);
    ExpectRefused(_dir.Path(), EISDIR);
    ExpectRefused(_dir / "socket", ENXIO);
    ExpectRefused(_dir / "missing", ENOENT);
    ExpectRefused(_dir / "loop", ELOOP);
    ExpectRefused("", ENOENT);
    close(iSocket);
}

TEST_F(JsonRead, RefusesAPathWithANulByte) {
    support::WriteFile(_dir / "file", "1");
    ExpectRefused((_dir / "file") + "\0.conf"s, EINVAL);
}

TEST_F(JsonRead, FollowsLinks) {
    support::WriteFile(_dir / "file", "[1]");
    ASSERT_EQ(symlink("file", (_dir / "link").c_str()), 0);
    EXPECT_TRUE(ReadPath(_dir / "link"));
}

TEST_F(JsonRead, LeavesNoDescriptorOpen) {
    const std::vector<int> vecBefore = support::OpenDescriptors();
    EXPECT_TRUE(Read("1"));
    EXPECT_FALSE(Read("x"));
    EXPECT_FALSE(ReadPath(_dir.Path()));
    EXPECT_EQ(support::OpenDescriptors(), vecBefore);
}

/// Numbers as they are written where the point groups thousands.
struct PointGroups : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(JsonRead, DoesNotReadIntegersByTheLocaleOfTheProcess) {
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new PointGroups));
    ExpectRead("15000", 15000);
    ExpectRead("-1234567", -1234567);
    EXPECT_EQ(VUKO::JSON::toString(12345.25), "12345.25");
    EXPECT_EQ(VUKO::JSON::toString(1234567), "1234567");
    std::locale::global(before);
}

Json::Value RandomDocument(std::mt19937& engine, int iDepth) {
    const auto Pick = [&](unsigned uCount) { return static_cast<unsigned>(engine() % uCount); };
    switch (Pick(iDepth > 0 ? 8 : 6)) {
    case 0:
        return Json::Value();
    case 1:
        return Pick(2) == 0;
    case 2:
        return static_cast<Json::Int64>(engine()) * (Pick(2) == 0 ? 1 : -2000000000);
    case 3:
        return std::ldexp(static_cast<double>(engine()), static_cast<int>(Pick(200)) - 100);
    case 4:
        return Json::UInt64{0xFFFFFFFFFFFFFFFF} - engine();
    case 5:
        return std::vector<std::string>{"", "a", "\xc3\xa4\"", "\n\\\x01", "\xf0\x9f\x98\x80", "a\0b"s}[Pick(6)];
    default:
        break;
    }
    Json::Value jsNested(Pick(2) == 0 ? Json::arrayValue : Json::objectValue);
    for (unsigned uItem = Pick(5); uItem > 0; --uItem) {
        (jsNested.isArray() ? jsNested.append(Json::Value()) : jsNested["k" + std::to_string(uItem)]) =
            RandomDocument(engine, iDepth - 1);
    }
    return jsNested;
}

TEST_F(JsonRead, ReadsBackWhatIsWrittenAndOnlyWhatCanBeWritten) {
    std::mt19937 engine(20261121);
    int iTaken = 0;
    for (int iRound = 0; iRound < 3000; ++iRound) {
        const Json::Value jsDocument = RandomDocument(engine, 4);
        std::string strText = VUKO::JSON::toString(jsDocument);
        if (iRound % 3 == 0) {
            ASSERT_TRUE(Read(strText)) << strText;
            ASSERT_EQ(_jsRead, jsDocument) << strText;
            continue;
        }
        const std::string strSpoilers = "[]{},:\"\\ 0-+.eEu\x80\n"; // so that the borders of the grammar are met
        strText[engine() % strText.size()] = strSpoilers[engine() % strSpoilers.size()];
        if (Read(strText)) {
            const Json::Value jsFirst = _jsRead;
            ++iTaken;
            ASSERT_TRUE(Read(VUKO::JSON::toString(jsFirst))) << strText;
            ASSERT_EQ(_jsRead, jsFirst) << strText;
        }
    }
    EXPECT_GT(iTaken, 100);
}

} // namespace
