#include "pipeline/pdf_writer.h"

// qpdf 11: use std::shared_ptr throughout, no PointerHolder.
#define POINTERHOLDER_TRANSITION 4
#include <qpdf/Buffer.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <sstream>

#include "pipeline/app_error.h"

namespace tavrin {

namespace {

using QOH = QPDFObjectHandle;

QOH name(const char* n) { return QOH::newName(n); }
QOH integer(long long v) { return QOH::newInteger(v); }
QOH real(double v) { return QOH::newReal(v, 4); }

// One content-stream operation: operands as qpdf writes them, then the
// operator.
void operation(std::ostringstream& out, std::vector<QOH> operands, const char* op) {
    for (QOH& o : operands) out << o.unparse() << ' ';
    out << op << '\n';
}

QOH imageStream(QPDF& pdf, const std::map<std::string, QOH>& dict, const std::string& data,
                const QOH& filter, const QOH& parms) {
    QOH s = QOH::newStream(&pdf);
    s.replaceStreamData(data, filter, parms);
    for (const auto& kv : dict) s.getDict().replaceKey(kv.first, kv.second);
    return s;
}

void configure(QPDFWriter& w) {
    w.setDecodeLevel(qpdf_dl_none);  // keep the library's streams byte for byte
    w.setCompressStreams(true);      // the small content streams get Flate
    w.setDeterministicID(true);
}

}  // namespace

PdfWriter::PdfWriter() : pdf_(new QPDF) {
    pdf_->emptyPDF();
}

PdfWriter::~PdfWriter() = default;

void PdfWriter::addPage(const EncodedPage& page) {
    QPDF& pdf = *pdf_;
    const double wPt = page.width * 72.0 / page.dpiX, hPt = page.height * 72.0 / page.dpiY;
    QOH xobjects = QOH::newDictionary();
    std::ostringstream content;
    const std::vector<QOH> fullPage = {real(wPt), integer(0), integer(0), real(hPt), integer(0), integer(0)};

    const QOH dct = name("/DCTDecode");
    const QOH bgFilter = page.backgroundFlate ? QOH::newArray({name("/FlateDecode"), dct}) : dct;
    const QOH bg = imageStream(
        pdf,
        {{"/Type", name("/XObject")},
         {"/Subtype", name("/Image")},
         {"/Width", integer(page.backgroundWidth)},
         {"/Height", integer(page.backgroundHeight)},
         {"/ColorSpace", name(page.backgroundChannels == 3 ? "/DeviceRGB" : "/DeviceGray")},
         {"/BitsPerComponent", integer(8)},
         {"/Interpolate", QOH::newBool(true)}},  // smooth when drawn at page size
        page.background, bgFilter, QOH::newNull());
    xobjects.replaceKey("/Bg", bg);
    operation(content, {}, "q");
    operation(content, fullPage, "cm");
    operation(content, {name("/Bg")}, "Do");
    operation(content, {}, "Q");

    int index = 0;
    for (const EncodedLayer& layer : page.layers) {
        // T.6 bits: a decoded black pixel is 0 (/BlackIs1 false), and an
        // image mask paints where its sample is 0 (default /Decode [0 1]).
        QOH parms = QOH::newDictionary();
        parms.replaceKey("/K", integer(-1));
        parms.replaceKey("/Columns", integer(page.width));
        parms.replaceKey("/Rows", integer(page.height));
        parms.replaceKey("/BlackIs1", QOH::newBool(false));
        const QOH mask = imageStream(pdf,
                                     {{"/Type", name("/XObject")},
                                      {"/Subtype", name("/Image")},
                                      {"/Width", integer(page.width)},
                                      {"/Height", integer(page.height)},
                                      {"/ImageMask", QOH::newBool(true)},
                                      {"/BitsPerComponent", integer(1)}},
                                     layer.mmr, name("/CCITTFaxDecode"), parms);
        const std::string key = "/Fg" + std::to_string(index++);
        xobjects.replaceKey(key, mask);
        operation(content, {}, "q");
        operation(content,
                  {real(layer.colour[0] / 255.0), real(layer.colour[1] / 255.0), real(layer.colour[2] / 255.0)},
                  "rg");
        operation(content, fullPage, "cm");
        operation(content, {QOH::newName(key)}, "Do");
        operation(content, {}, "Q");
    }

    QOH resources = QOH::newDictionary();
    resources.replaceKey("/XObject", xobjects);
    QOH pageDict = QOH::newDictionary();
    pageDict.replaceKey("/Type", name("/Page"));
    pageDict.replaceKey("/MediaBox", QOH::newArray(QOH::Rectangle(0, 0, wPt, hPt)));
    pageDict.replaceKey("/Resources", resources);
    pageDict.replaceKey("/Contents", QOH::newStream(&pdf, content.str()));
    QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(pdf.makeIndirectObject(pageDict)), false);
}

std::string PdfWriter::toBytes() {
    QPDFWriter w(*pdf_);
    w.setOutputMemory();
    configure(w);
    w.write();
    std::unique_ptr<Buffer> b(w.getBuffer());
    return std::string(reinterpret_cast<const char*>(b->getBuffer()), b->getSize());
}

}  // namespace tavrin
