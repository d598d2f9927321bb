// The HTML of a copied selection: any bytes name a font or none.
#include "VellumlineCore/SelectionStyle.h"

using namespace vellumline;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const QByteArray input(reinterpret_cast<const char*>(bytes), static_cast<qsizetype>(size));
    SelectionStyle::fontInHtml(input + "face=");
    return 0;
}
