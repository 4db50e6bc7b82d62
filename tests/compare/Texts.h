// Names, data and whole files for a comparison: few names, so that keys and values meet and displace
// each other; odd ones and malformed lines in between.
#ifndef VQCOMPARE_TEXTS_H
#define VQCOMPARE_TEXTS_H

#include <string>

#include "Chance.h"

namespace vqcompare {

class Texts {
public:
    // `oddity`: one name, text or line in so many is one that a careful program would not use.
    Texts(Chance& chance, std::size_t oddity) : m_chance(chance), m_oddity(oddity) {}

    std::string keyName();
    std::string valueName();
    std::string path();
    std::string text();
    std::string bytes();

    // A whole file; `damage` is what editors, disks and people do to lines.
    std::string file(bool damage);

private:
    bool odd() { return m_chance.oneIn(m_oddity); }
    std::string anyCase(std::string text);
    std::string name(bool ofKey);
    std::string keyLine();
    std::string valueLine();
    std::string damaged(std::string line);

    Chance& m_chance;
    std::size_t m_oddity;
};

}  // namespace vqcompare

#endif  // VQCOMPARE_TEXTS_H
