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

constexpr double kInwardNudge = 0.0001;  // points; see PdfWriter::addPage
constexpr double kFillInset = 0.01;      // pixels; see PdfWriter::addPage

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

namespace {

// A JPEG image XObject (gray or RGB), smoothed when a reader enlarges it.
QOH jpegImage(QPDF& pdf, const EncodedImage& image) {
    const QOH dct = name("/DCTDecode");
    return imageStream(pdf,
                       {{"/Type", name("/XObject")},
                        {"/Subtype", name("/Image")},
                        {"/Width", integer(image.width)},
                        {"/Height", integer(image.height)},
                        {"/ColorSpace", name(image.channels == 3 ? "/DeviceRGB" : "/DeviceGray")},
                        {"/BitsPerComponent", integer(8)},
                        {"/Interpolate", QOH::newBool(true)}},
                       image.data, image.flate ? QOH::newArray({name("/FlateDecode"), dct}) : dct,
                       QOH::newNull());
}

// T.6 bits: a decoded black pixel is 0 (/BlackIs1 false), and an image mask
// paints where its sample is 0 (default /Decode [0 1]).
QOH maskImage(QPDF& pdf, const EncodedLayer& layer) {
    QOH parms = QOH::newDictionary();
    parms.replaceKey("/K", integer(-1));
    parms.replaceKey("/Columns", integer(layer.width));
    parms.replaceKey("/Rows", integer(layer.height));
    parms.replaceKey("/BlackIs1", QOH::newBool(false));
    return imageStream(pdf,
                       {{"/Type", name("/XObject")},
                        {"/Subtype", name("/Image")},
                        {"/Width", integer(layer.width)},
                        {"/Height", integer(layer.height)},
                        {"/ImageMask", QOH::newBool(true)},
                        {"/Interpolate", QOH::newBool(true)},
                        {"/BitsPerComponent", integer(1)}},
                       layer.mmr, name("/CCITTFaxDecode"), parms);
}

}  // namespace

void PdfWriter::addPage(const EncodedPage& page) {
    QPDF& pdf = *pdf_;
    const double sx = 72.0 / page.dpiX, sy = 72.0 / page.dpiY;
    const double wPt = page.width * sx, hPt = page.height * sy;
    QOH xobjects = QOH::newDictionary();
    std::ostringstream content;
    const Rect wholePage{0, 0, page.width - 1, page.height - 1};
    // Draws XObject `key` over `box` (page pixels; PDF's y axis points up).
    // Viewers snap an image's edges outward to whole device pixels, so a top
    // or left edge that lands a rounding error short of a pixel boundary
    // costs a whole extra row or column: the picture shifts and stretches by
    // a pixel, which is plain to see on line art. Moving a picture right and
    // down by kInwardNudge points (0.0004 pixel at 300 dpi, well inside the
    // snapping tolerance) keeps its top-left corner on the inner side of the
    // boundary. The page-sized layers need no nudge: the page's corners are
    // where rendering starts.
    const auto draw = [&](const std::string& key, const Rect& box) {
        const bool pageSized = box.x0 == wholePage.x0 && box.y0 == wholePage.y0 && box.x1 == wholePage.x1 &&
                               box.y1 == wholePage.y1;
        const double nudge = pageSized ? 0.0 : kInwardNudge;
        operation(content, {}, "q");
        operation(content,
                  {real(box.width() * sx), integer(0), integer(0), real(box.height() * sy), real(box.x0 * sx + nudge),
                   real((page.height - 1 - box.y1) * sy - nudge)},
                  "cm");
        operation(content, {name(key.c_str())}, "Do");
        operation(content, {}, "Q");
    };

    xobjects.replaceKey("/Bg", jpegImage(pdf, page.background));
    draw("/Bg", wholePage);
    // Tints, each a filled rectangle moved kFillInset pixel inward on every
    // side: an edge on a pixel boundary that a rounding error puts just
    // outside it would shade a sliver of the neighbouring row in an
    // anti-aliasing viewer.
    for (const Fill& f : page.fills) {
        operation(content, {real(f.colour[0] / 255.0), real(f.colour[1] / 255.0), real(f.colour[2] / 255.0)}, "rg");
        operation(content,
                  {real((f.box.x0 + kFillInset) * sx), real((page.height - 1 - f.box.y1 + kFillInset) * sy),
                   real((f.box.width() - 2 * kFillInset) * sx), real((f.box.height() - 2 * kFillInset) * sy)},
                  "re");
        operation(content, {}, "f");
    }
    for (size_t i = 0; i < page.pictures.size(); ++i) {
        const std::string key = "/Im" + std::to_string(i);
        xobjects.replaceKey(key, jpegImage(pdf, page.pictures[i]));
        draw(key, page.pictures[i].box);
    }
    for (size_t i = 0; i < page.layers.size(); ++i) {
        const EncodedLayer& layer = page.layers[i];
        const std::string key = "/Fg" + std::to_string(i);
        xobjects.replaceKey(key, maskImage(pdf, layer));
        operation(content,
                  {real(layer.colour[0] / 255.0), real(layer.colour[1] / 255.0), real(layer.colour[2] / 255.0)},
                  "rg");
        draw(key, wholePage);
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
