#include "arrayexport.h"

#include "arraylens/export.h"
#include "arraylens/slice.h"

#include "wire/arrayrecords.h"

#include <QVariantList>

namespace arraylens::gdb {

HVDWPRequest exportRequest(IHVExpression* expression, const QString& slice, const QString& filter,
                           const QString& path) {
    HVDWPRequest r(kExportRequestId, 0);
    QObject* bag = r.propertyBag.data();
    FocusFields::setExpressionFields(bag, expression);
    bag->setProperty("Slice", slice);
    bag->setProperty("Filter", filter);
    bag->setProperty("OutFile", path);
    return r;
}

Fields exportFields(const RequestSnapshot& r, const ArrayFacts& facts, std::size_t tileBytes,
                    const arraylens::ArrayDescriptor& array, arraylens::Reader& reader,
                    const std::atomic<bool>* cancel) {
    arraylens::ExportOptions options;
    options.cancel = cancel;
    options.tileBytes = tileBytes;
    const auto written =
        arraylens::exportElements(array, reader, r.slice.toStdString(), r.filter.toStdString(),
                                  r.outFile.toStdString(), options);
    if (!written)
        return errorFields(r, QString::fromStdString(written.message()), QStringLiteral("export"));
    const arraylens::ExportSummary& s = *written;
    QVariantList shape;
    for (std::int64_t e : s.shape)
        shape.append(qlonglong(e));
    Fields f;
    f.append({"File", r.outFile});
    f.append({"Format", s.format == arraylens::ExportFormat::Npy ? QStringLiteral("npy")
                                                                 : QStringLiteral("csv")});
    f.append({"Count", qulonglong(s.count)});
    f.append({"Shape", shape});
    if (s.format == arraylens::ExportFormat::Npy) {
        f.append({"DType", QString::fromStdString(s.dtype)});
        f.append({"FortranOrder", s.fortranOrder});
    }
    f.append({"Array", r.expression});
    f.append({"ActualType", facts.typeText});
    f.append({"EmptySlice", QString::fromStdString(arraylens::wholeArraySliceText(array))});
    f.append({"Filter", r.filter.trimmed()});
    f.append({"result", QStringLiteral("done")});
    return f;
}

} // namespace arraylens::gdb
