#include "model/StepGen.h"

#include <string>
#include <vector>

namespace vqtorture::model {

namespace {

using rc::Gen;
using Texts = std::vector<std::string>;

constexpr int kSteps = 80;

// Few names, so that steps meet; keys and values share some of them.
const Texts& keyNames() {
    static const Texts all = {"a", "b", "a", "A", "b", "c", "a", "B", "Velquist", "z1"};
    return all;
}

const Texts& valueNames() {
    static const Texts all = {"c", "d", "c", "C", "d", "a", "c", "D", "b", "z1"};
    return all;
}

// What one name can do to others once the file is read.
const Texts& oddNames() {
    static const Texts all = {"",
                              "<root>",
                              "<ROOT>",
                              std::string(300, 'n'),
                              std::string(1900, 'l'),
                              "x:y",
                              "]",
                              "a]b",
                              "q\"r",
                              "s\"=string:t",
                              "l\nm",
                              "v\n\"w\"=dword:0000000A",
                              "c\rd",
                              "a/b",
                              "a\\b",
                              "\xC3\xA4\xFF",
                              " ",
                              ".",
                              "=",
                              "[a]",
                              "t\tu"};
    return all;
}

const Texts& values() {
    static const Texts all = {"",
                              "x",
                              "X y",
                              "0A",
                              "4.2 build:17",
                              "\"quoted\"=\"",
                              "end\n\"b\"=dword:00000007",
                              "end\n[Velquist/a]\n\"b\"=string:moved",
                              "cut\rhere",
                              "line\n",
                              std::string(1024, '\x7F'),
                              std::string(2040, 's'),
                              std::string(3000, 'S')};
    return all;
}

const Texts& keyLines() {
    static const Texts all = {"[Velquist]",
                              "[Velquist/a]",
                              "[velquist/A/b]",
                              "[Velquist/b]",
                              "[Velquist/a/b/c]",
                              "[Site]",
                              "[Site/a]",
                              "[Velquist/c]",
                              "[Velquist/a]trailing",
                              "[Velquist//a]",
                              "[Velquist/]",
                              "[Velquist/a/]",
                              "[Velquist/<root>]",
                              "[<root>/x]",
                              "[Velquist/a\\b]",
                              "[/]",
                              "[//]",
                              "[]",
                              "[[a]]",
                              "[Velquist"};
    return all;
}

const Texts& typedData() {
    static const Texts all = {
        "=dword:00000001", "=string:x",     "=binary:0102",     "=dword:FFFFFFFF", "=dword:1",
        "=dword:",         "=dword:12G",    "=dword:123456789", "=dword:fe",       "=binary:",
        "=binary:0",       "=binary:0A1",   "=binary:ab",       "=string:",        "=string: y ",
        "=string:a:b",     "=string:\"q\"", "=binary:01020",    "=dword:zz",       "=string:0"};
    return all;
}

const Texts& badLines() {
    static const Texts all = {"",
                              "\"a\"",
                              "junk",
                              "\"a\"=dword",
                              "\"a\"=Dword:1",
                              "\"a\" =dword:1",
                              "\"a=dword:1",
                              std::string(2047, 'k'),
                              "\"a\"=string:" + std::string(2036, 'f'),
                              "\"a\"=string:" + std::string(2037, 'f'),
                              "\"a\"=string:" + std::string(2050, 'f'),
                              "\"a\"=string:" + std::string(2036, 'f') + "\"b\"=dword:00000005",
                              std::string("\"a\"=string:n\0ul", 15),
                              std::string("\0", 1)};
    return all;
}

// All numbers are as likely in a short sequence as in a long one; they shrink towards the lowest.
Gen<int> from(int begin, int end) {
    return rc::gen::resize(rc::kNominalSize, rc::gen::inRange(begin, end));
}

Gen<std::string> oneOf(const Texts& texts) {
    return rc::gen::map(from(0, static_cast<int>(texts.size())),
                        [&texts](int i) { return texts[static_cast<std::size_t>(i)]; });
}

Gen<std::string> nameFrom(const Texts& names) {
    return rc::gen::weightedOneOf<std::string>({{14, oneOf(names)}, {1, oneOf(oddNames())}});
}

// Deeper than a dump can indent.
std::string deepPath() {
    std::string path = "a";
    for (int i = 0; i < 40; ++i) {
        path += "/b";
    }
    return path;
}

// One name more often than two or three.
Gen<std::string> path() {
    const auto below = [](const std::string& separator) {
        return rc::gen::map(nameFrom(keyNames()),
                            [separator](const std::string& one) { return separator + one; });
    };
    const auto more = rc::gen::weightedOneOf<std::string>(
        {{6, rc::gen::just(std::string())}, {3, below("/")}, {1, below("\\")}});
    const auto shallow =
        rc::gen::map(rc::gen::tuple(nameFrom(keyNames()), more, more),
                     [](const std::tuple<std::string, std::string, std::string>& made) {
                         return std::get<0>(made) + std::get<1>(made) + std::get<2>(made);
                     });
    return rc::gen::weightedOneOf<std::string>({{60, shallow}, {1, rc::gen::just(deepPath())}});
}

Gen<std::string> valueLine() {
    return rc::gen::map(rc::gen::pair(nameFrom(valueNames()), oneOf(typedData())),
                        [](const std::pair<std::string, std::string>& made) {
                            return '"' + made.first + '"' + made.second;
                        });
}

Gen<std::string> line() {
    return rc::gen::weightedOneOf<std::string>(
        {{8, valueLine()}, {8, oneOf(keyLines())}, {1, oneOf(badLines())}});
}

// Most begin with a key and are whole.
Gen<std::string> fileText() {
    const auto lines = rc::gen::resize(10, rc::gen::container<Texts>(line()));
    const auto ends = rc::gen::weightedElement<std::string>({{8, "\n"}, {1, "\r\n"}, {1, "\rx\n"}});
    const auto starts =
        rc::gen::weightedElement<std::string>({{8, "[Velquist]\n"}, {1, ""}, {1, "[Site]\r\n"}});
    return rc::gen::map(rc::gen::tuple(starts, lines, ends, from(0, 6)),
                        [](const std::tuple<std::string, Texts, std::string, int>& made) {
                            const auto& [start, all, end, cut] = made;
                            std::string text = start;
                            for (const std::string& one : all) {
                                text += one + end;
                            }
                            if (cut == 5 && !text.empty()) {
                                text.pop_back();
                            }
                            return text;
                        });
}

Gen<Verb> verb() {
    return rc::gen::weightedElement<Verb>(
        {{5, Verb::eOpenSession},   {1, Verb::eCloseSession}, {22, Verb::eCreateKey},
         {9, Verb::eDeleteKey},     {10, Verb::eSetString},   {6, Verb::eSetDword},
         {4, Verb::eSetBinary},     {8, Verb::eDeleteValue},  {3, Verb::eQueryType},
         {12, Verb::eQuery},        {5, Verb::eEnumKeys},     {5, Verb::eEnumValues},
         {1, Verb::eLook},          {1, Verb::eDrop},         {1, Verb::eParse},
         {4, Verb::eCreateVect},    {1, Verb::eDestroyVect},  {4, Verb::eDump},
         {3, Verb::eBegin},         {3, Verb::eEnd},          {8, Verb::eReload},
         {2, Verb::eCrowd},         {5, Verb::eWriteFile},    {2, Verb::eAppendFile},
         {6, Verb::eEditFile},      {1, Verb::eCutFile},      {1, Verb::eRemoveFile},
         {1, Verb::eWriteBackup},   {1, Verb::eRemoveBackup}, {1, Verb::eHideDirectory},
         {2, Verb::eShowDirectory}, {2, Verb::eBeginScope},   {2, Verb::eEndScope},
         {2, Verb::eDropScope},     {2, Verb::eRegister},     {2, Verb::eUnregister},
         {1, Verb::eNotify},        {1, Verb::eWatch}});
}

bool takesPath(Verb verb) {
    return verb == Verb::eCreateKey || verb == Verb::eDeleteKey || verb == Verb::eCreateVect ||
           verb == Verb::eParse;
}

Gen<std::string> dataFor(Verb verb) {
    switch (verb) {
        case Verb::eWriteFile:
        case Verb::eWriteBackup:
            return fileText();
        case Verb::eAppendFile:
            return rc::gen::map(line(), [](const std::string& one) { return one + "\n"; });
        case Verb::eEditFile:
            return rc::gen::weightedOneOf<std::string>(
                {{2, line()}, {1, rc::gen::just(std::string())}});
        case Verb::eSetString:
        case Verb::eSetBinary:
            return oneOf(values());
        default:
            return rc::gen::just(std::string());
    }
}

Gen<int> numberFor(Verb verb) {
    switch (verb) {
        case Verb::eOpenSession:
            return rc::gen::weightedOneOf<int>(
                {{5, from(0, 7)}, {1, from(0, static_cast<int>(kStoreNames.size()))}});
        case Verb::eSetDword:
            return rc::gen::element(0, 1, 10, 31, -1, 0x7FFFFFFF);
        case Verb::eEndScope:
        case Verb::eDropScope:
        case Verb::eRegister:
        case Verb::eUnregister:
            return rc::gen::weightedElement<int>({{5, 0}, {1, 1}, {1, 2}});
        case Verb::eEditFile:
            return from(0, 10);
        case Verb::eCutFile:
            return rc::gen::element(0, 30, 60, 90, 99);
        case Verb::eCrowd:
        case Verb::eQuery:
        case Verb::eEnumKeys:
        case Verb::eEnumValues:
            return from(0, 60);
        default:
            return rc::gen::just(0);
    }
}

// Which key a step is about: the root key of the session more often than each of the others.
Gen<int> keyNumber(bool mayBeNone) {
    return rc::gen::weightedOneOf<int>({{4, rc::gen::just(0)},
                                        {4, from(1, kFirstOfVect)},
                                        {1, from(kFirstOfVect, kNoKey + (mayBeNone ? 1 : 0))}});
}

Gen<Step> stepOf(Verb verb, int processes) {
    const bool isOfFiles = verb >= Verb::eWriteFile;
    return rc::gen::build<Step>(
        rc::gen::set(&Step::verb, rc::gen::just(verb)),
        rc::gen::set(&Step::process, from(0, processes)),
        rc::gen::set(&Step::session, rc::gen::weightedElement<int>({{6, 0}, {4, 1}, {1, 2}})),
        rc::gen::set(&Step::key, isOfFiles ? rc::gen::weightedElement<int>({{5, 0}, {1, 1}})
                                           : keyNumber(false)),
        rc::gen::set(&Step::parent, keyNumber(true)), rc::gen::set(&Step::number, numberFor(verb)),
        rc::gen::set(&Step::flag, rc::gen::weightedElement<bool>({{1, false}, {2, true}})),
        rc::gen::set(&Step::text, takesPath(verb) ? path() : nameFrom(valueNames())),
        rc::gen::set(&Step::data, dataFor(verb)));
}

}  // namespace

Gen<std::vector<Step>> steps(int processes) {
    const auto step =
        rc::gen::mapcat(verb(), [processes](Verb one) { return stepOf(one, processes); });
    return rc::gen::resize(kSteps, rc::gen::container<std::vector<Step>>(step));
}

}  // namespace vqtorture::model
