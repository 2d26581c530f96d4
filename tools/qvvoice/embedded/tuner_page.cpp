#include "embedded/tuner_page.h"

#ifdef QVVOICE_PAGE_FOLDER
asm(".section .rodata\n"
    "qvvoice_page: .incbin \"" QVVOICE_PAGE_FOLDER "/tuner.html\"\n"
    "qvvoice_page_end:\n"
    "qvvoice_packed_page: .incbin \"" QVVOICE_PAGE_FOLDER "/tuner-without-call.html.gz\"\n"
    "qvvoice_packed_page_end:\n"
    ".text\n");
extern "C" const char qvvoice_page[], qvvoice_page_end[], qvvoice_packed_page[], qvvoice_packed_page_end[];
#endif

namespace qv::tool::embedded {

#ifdef QVVOICE_PAGE_FOLDER
std::string_view tuner_page() { return {qvvoice_page, qvvoice_page_end}; }
std::string_view packed_tuner_page() { return {qvvoice_packed_page, qvvoice_packed_page_end}; }
#else
std::string_view tuner_page() { return {}; }
std::string_view packed_tuner_page() { return {}; }
#endif

} // namespace qv::tool::embedded
