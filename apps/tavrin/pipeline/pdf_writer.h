// PDF output through qpdf: each page is a background image (/DCTDecode, or
// [/FlateDecode /DCTDecode]) under image masks (/CCITTFaxDecode, /K -1)
// painted in their colours. The streams are stored exactly as the library
// encoded them; qpdf is told not to decode or re-encode anything.
#ifndef TAVRIN_APP_PDF_WRITER_H
#define TAVRIN_APP_PDF_WRITER_H

#include <memory>
#include <string>

#include "pipeline/encoded_page.h"

class QPDF;

namespace tavrin {

class PdfWriter {
public:
    PdfWriter();
    ~PdfWriter();
    void addPage(const EncodedPage& page);
    // The document as bytes; qpdf's failures throw its own exceptions.
    std::string toBytes();

private:
    std::unique_ptr<QPDF> pdf_;
};

}  // namespace tavrin

#endif
