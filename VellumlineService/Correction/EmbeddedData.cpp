#include "VellumlineService/Correction/EmbeddedData.h"

// The assembler takes the bytes as they are. A Qt resource of this size would be compiled from 10 MB of
// source. NOLINTNEXTLINE(hicpp-no-assembler)
__asm__(".section .rodata\n"
        ".balign 8\n"
        "vellumlineInflections:\n"
        ".incbin \"" VELLUMLINE_INFLECTIONS "\"\n"
        "vellumlineInflectionsEnd:\n"
        ".byte 0\n"
        ".balign 8\n"
        "vellumlineTagger:\n"
        ".incbin \"" VELLUMLINE_TAGGER "\"\n"
        "vellumlineTaggerEnd:\n"
        ".byte 0\n"
        ".previous\n"
        ".globl vellumlineInflections, vellumlineInflectionsEnd, vellumlineTagger, vellumlineTaggerEnd\n"
        ".hidden vellumlineInflections, vellumlineInflectionsEnd, vellumlineTagger, vellumlineTaggerEnd\n");

extern "C" {
extern const char vellumlineInflections[];
extern const char vellumlineInflectionsEnd[];
extern const char vellumlineTagger[];
extern const char vellumlineTaggerEnd[];
}

namespace vellumline {

std::string_view inflectionData() {
    return {vellumlineInflections, static_cast<size_t>(vellumlineInflectionsEnd - vellumlineInflections)};
}

std::string_view taggerData() {
    return {vellumlineTagger, static_cast<size_t>(vellumlineTaggerEnd - vellumlineTagger)};
}

} // namespace vellumline
