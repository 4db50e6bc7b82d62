#include "RegLib/text/ValueData.h"

#include <algorithm>

#include "RegLib/text/LineFormat.h"

namespace VQRegLib {

int giveText(std::string_view text, const CDataBuffer& buffer) {
    const int result = buffer.needs(text.size() + 1);
    if (result >= 0 && buffer.data) {
        text.copy(reinterpret_cast<char*>(buffer.data), text.size());
        buffer.data[text.size()] = '\0';
    }
    return result;
}

int giveBytes(std::string_view digits, const CDataBuffer& buffer) {
    const int result = buffer.needs(digits.size() / 2);
    if (result >= 0) {
        scanBytes(digits, buffer.data,
                  std::min<std::size_t>(buffer.capacity, digits.size() - digits.size() / 2));
    }
    return result;
}

std::string bytesOfDigits(std::string_view digits) {
    std::string bytes(digits.size() / 2, '\0');
    unsigned long size = bytes.size();
    // There is room for all of them.
    (void)giveBytes(digits, {reinterpret_cast<unsigned char*>(bytes.data()), size, &size});
    return bytes;
}

int giveData(std::string_view line, CRegLib::eDataType type, const CDataBuffer& buffer) {
    std::string_view text;
    const int result = dataOfLine(line, text);
    return result < 0 ? result : giveDataText(text, type, buffer);
}

int giveDataText(std::string_view text, CRegLib::eDataType type, const CDataBuffer& buffer) {
    switch (type) {
        case CRegLib::eDword:
            return giveNumber(scanHex(text, 8), buffer);
        case CRegLib::eString:
            return giveText(text, buffer);
        case CRegLib::eBinary:
            return giveBytes(text, buffer);
        default:
            *buffer.size = 0;
            return REGLIB_E_BAD_TYPE;
    }
}

}  // namespace VQRegLib
