// The data objects: the JSON document of each plot kind, and the packed form
// their channel twins hand to the pages.
#include "plot/chartfeed.h"
#include "plot/dataqobject.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QSignalSpy>
#include <QVariant>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

namespace {

QJsonArray ints(std::initializer_list<int> values) {
    QJsonArray a;
    for (int v : values)
        a.append(v);
    return a;
}

QJsonArray doubles(std::initializer_list<double> values) {
    QJsonArray a;
    for (double v : values)
        a.append(v);
    return a;
}

// The values of a packed array, whichever form it took.
std::vector<double> unpackF64(const QJsonValue& packed) {
    const QJsonObject o = packed.toObject();
    if (o.contains(QStringLiteral("$i32"))) {
        const QByteArray raw =
            QByteArray::fromBase64(o.value(QStringLiteral("$i32")).toString().toLatin1());
        std::vector<double> out(size_t(raw.size()) / sizeof(qint32));
        for (size_t i = 0; i < out.size(); ++i) {
            qint32 v;
            std::memcpy(&v, raw.constData() + i * sizeof(qint32), sizeof v);
            out[i] = v;
        }
        return out;
    }
    const QByteArray raw =
        QByteArray::fromBase64(o.value(QStringLiteral("$f64")).toString().toLatin1());
    std::vector<double> out(size_t(raw.size()) / sizeof(double));
    std::memcpy(out.data(), raw.constData(), out.size() * sizeof(double));
    return out;
}

} // namespace

TEST(DataObjects, LineOfThreeValuesGivesPositionsAndValues) {
    LineDataQObject line;
    QSignalSpy available(&line, &DataQObject::dataAvailable);
    double values[] = {1.5, 2.5, 3.5};
    line.setData(values, 3, 640, 480, QStringLiteral("a"));

    const QJsonObject doc = line.dataJson.object();
    EXPECT_EQ(doc.keys(), (QStringList{"x", "y"}));
    EXPECT_EQ(doc.value("x").toArray(), ints({0, 1, 2}));
    EXPECT_EQ(doc.value("y").toArray(), doubles({1.5, 2.5, 3.5}));
    EXPECT_EQ(available.count(), 1);
    EXPECT_EQ(line.width, 640);
    EXPECT_EQ(line.height, 480);
    EXPECT_EQ(line.getDisplayName(), QStringLiteral("a"));
}

TEST(DataObjects, CSurfaceTwoByThreeHasZeroBasedRowsAlongX) {
    SurfDataQObject surf;
    surf.setxDimension(2);
    surf.setyDimension(3);
    double values[] = {1, 2, 3, 4, 5, 6};
    surf.setData(values, 6, 100, 100, QStringLiteral("s"));

    const QJsonObject doc = surf.dataJson.object();
    EXPECT_EQ(doc.value("z").toArray(), (QJsonArray{doubles({1, 2, 3}), doubles({4, 5, 6})}));
    EXPECT_EQ(doc.value("x").toArray(), (QJsonArray{ints({0, 0, 0}), ints({1, 1, 1})}));
    EXPECT_EQ(doc.value("y").toArray(), (QJsonArray{ints({0, 1, 2}), ints({0, 1, 2})}));
}

TEST(DataObjects, FortranSurfaceTwoByThreeHasOneBasedColumnsAlongX) {
    SurfDataQObject surf;
    surf.setxDimension(2);
    surf.setyDimension(3);
    surf.setFortran(true);
    double values[] = {1, 2, 3, 4, 5, 6};
    surf.setData(values, 6, 100, 100, QStringLiteral("s"));

    const QJsonObject doc = surf.dataJson.object();
    EXPECT_EQ(doc.value("z").toArray(), (QJsonArray{doubles({1, 2, 3}), doubles({4, 5, 6})}));
    EXPECT_EQ(doc.value("x").toArray(), (QJsonArray{ints({1, 2, 3}), ints({1, 2, 3})}));
    EXPECT_EQ(doc.value("y").toArray(), (QJsonArray{ints({1, 1, 1}), ints({2, 2, 2})}));
}

TEST(DataObjects, EmptyHistogramHasEmptyXAndStillSignals) {
    HistDataQObject hist;
    QSignalSpy available(&hist, &DataQObject::dataAvailable);
    hist.setData(nullptr, 0, 10, 10, QString());
    ASSERT_TRUE(hist.dataJson.object().contains("x"));
    EXPECT_TRUE(hist.dataJson.object().value("x").isArray());
    EXPECT_TRUE(hist.dataJson.object().value("x").toArray().isEmpty());
    EXPECT_FALSE(hist.dataJson.object().contains("y"));
    EXPECT_EQ(available.count(), 1);
}

TEST(DataObjects, HistogramKeepsNonFiniteValuesAsTheyAre) {
    HistDataQObject hist;
    double values[] = {std::numeric_limits<double>::quiet_NaN(),
                       std::numeric_limits<double>::infinity(), -0.25};
    hist.setData(values, 3, 10, 10, QString());
    const QJsonArray x = hist.dataJson.object().value("x").toArray();
    ASSERT_EQ(x.size(), 3);
    EXPECT_TRUE(std::isnan(x.at(0).toDouble()));
    EXPECT_TRUE(std::isinf(x.at(1).toDouble()));
    EXPECT_EQ(x.at(2).toDouble(), -0.25);
}

TEST(DataObjects, NegativeCountGivesEmptyLine) {
    LineDataQObject line;
    line.setData(nullptr, -4, 10, 10, QString());
    EXPECT_TRUE(line.dataJson.object().value("x").toArray().isEmpty());
    EXPECT_TRUE(line.dataJson.object().value("y").toArray().isEmpty());
}

TEST(DataObjects, SurfaceWithNoColumnsHasEmptyRows) {
    SurfDataQObject surf;
    surf.setxDimension(2);
    surf.setyDimension(0);
    surf.setData(nullptr, 0, 10, 10, QString());
    EXPECT_EQ(surf.dataJson.object().value("z").toArray(),
              (QJsonArray{QJsonArray(), QJsonArray()}));
}

TEST(DataObjects, PropertyWriteOfEqualDocumentDoesNotSignal) {
    LineDataQObject line;
    double values[] = {1, 2};
    line.setData(values, 2, 1, 1, QString());
    QSignalSpy available(&line, &DataQObject::dataAvailable);

    EXPECT_TRUE(line.setProperty("dataJson", QVariant::fromValue(line.dataJson)));
    EXPECT_EQ(available.count(), 0);

    const QJsonDocument other(QJsonObject{{"x", ints({7})}});
    EXPECT_TRUE(line.setProperty("dataJson", QVariant::fromValue(other)));
    EXPECT_EQ(available.count(), 1);
    EXPECT_EQ(line.property("dataJson").toJsonDocument(), other);
}

TEST(DataObjects, InvokablesReadAndWriteTheFields) {
    SurfDataQObject surf;
    EXPECT_TRUE(QMetaObject::invokeMethod(&surf, "setRank", Q_ARG(int, 2)));
    EXPECT_TRUE(QMetaObject::invokeMethod(&surf, "setxDimension", Q_ARG(int, 4)));
    EXPECT_TRUE(QMetaObject::invokeMethod(&surf, "setyDimension", Q_ARG(int, 5)));
    EXPECT_TRUE(QMetaObject::invokeMethod(&surf, "setWidth", Q_ARG(int, 300)));
    EXPECT_TRUE(QMetaObject::invokeMethod(&surf, "setHeight", Q_ARG(int, 200)));
    EXPECT_TRUE(QMetaObject::invokeMethod(&surf, "setFortran", Q_ARG(bool, true)));
    EXPECT_EQ(surf.getRank(), 2);
    EXPECT_EQ(surf.getxDimension(), 4);
    EXPECT_EQ(surf.getyDimension(), 5);
    EXPECT_EQ(surf.getWidth(), 300);
    EXPECT_EQ(surf.getHeight(), 200);
    EXPECT_TRUE(surf.isFortran());
}

TEST(DataObjects, RefreshSignalsAgainWithTheSameDocument) {
    HistDataQObject hist;
    double values[] = {3};
    hist.setData(values, 1, 1, 1, QString());
    const QJsonDocument before = hist.dataJson;
    QSignalSpy available(&hist, &DataQObject::dataAvailable);
    hist.refresh();
    EXPECT_EQ(available.count(), 1);
    EXPECT_EQ(hist.dataJson, before);
}

// ---- the channel twin -------------------------------------------------------

TEST(ChartFeed, PackedLineHoldsExactlyTheDocumentsValues) {
    LineDataQObject line;
    ChartFeed* feed = line.channelObject();
    QSignalSpy fed(feed, &ChartFeed::dataAvailable);
    double values[] = {0.1, -2e300, std::numeric_limits<double>::quiet_NaN(),
                       -std::numeric_limits<double>::infinity(), 5e-324};
    line.setData(values, 5, 1, 1, QString());
    EXPECT_EQ(fed.count(), 1);

    const QJsonObject packed = feed->property("dataJson").toJsonDocument().object();
    EXPECT_EQ(packed.keys(), (QStringList{"x", "y"}));
    const std::vector<double> x = unpackF64(packed.value("x"));
    const std::vector<double> y = unpackF64(packed.value("y"));
    ASSERT_EQ(x.size(), 5u);
    ASSERT_EQ(y.size(), 5u);
    const QJsonArray docY = line.dataJson.object().value("y").toArray();
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(x[size_t(i)], double(i));
        const double expected = docY.at(i).toDouble();
        if (std::isnan(expected))
            EXPECT_TRUE(std::isnan(y[size_t(i)]));
        else
            EXPECT_EQ(y[size_t(i)], expected) << i;
    }
}

TEST(ChartFeed, PackedSurfaceKeepsRowsOfValues) {
    SurfDataQObject surf;
    surf.setxDimension(2);
    surf.setyDimension(2);
    double values[] = {1, 2, 3, 4};
    surf.setData(values, 4, 1, 1, QString());
    const QJsonObject packed = surf.channelObject()->dataJson().object();
    const QJsonArray z = packed.value("z").toArray();
    ASSERT_EQ(z.size(), 2);
    EXPECT_EQ(unpackF64(z.at(0)), (std::vector<double>{1, 2}));
    EXPECT_EQ(unpackF64(z.at(1)), (std::vector<double>{3, 4}));
    EXPECT_EQ(unpackF64(packed.value("x").toArray().at(1)), (std::vector<double>{1, 1}));
}

TEST(ChartFeed, WithheldFeedPublishesNothingUntilTheNextSignal) {
    HistDataQObject hist;
    double values[] = {1, 2, 3};
    hist.setData(values, 3, 1, 1, QString());
    ChartFeed* feed = hist.channelObject();
    EXPECT_FALSE(feed->dataJson().isEmpty());
    feed->withhold();
    EXPECT_TRUE(feed->dataJson().isEmpty());
    hist.refresh();
    EXPECT_EQ(unpackF64(feed->dataJson().object().value("x")), (std::vector<double>{1, 2, 3}));
}

TEST(ChartFeed, FollowsPropertyWritesOfTheDataObject) {
    LineDataQObject line;
    const QJsonDocument doc(QJsonObject{{"x", ints({0, 1})}, {"y", doubles({9, 8})}});
    line.setProperty("dataJson", QVariant::fromValue(doc));
    EXPECT_EQ(unpackF64(line.channelObject()->dataJson().object().value("y")),
              (std::vector<double>{9, 8}));
}

TEST(ChartFeed, OffersTheDataObjectsInvokablesAndPassesWritesOn) {
    SurfDataQObject surf;
    ChartFeed* feed = surf.channelObject();
    EXPECT_TRUE(QMetaObject::invokeMethod(feed, "setRank", Q_ARG(int, 2)));
    EXPECT_TRUE(QMetaObject::invokeMethod(feed, "setxDimension", Q_ARG(int, 3)));
    EXPECT_TRUE(QMetaObject::invokeMethod(feed, "setyDimension", Q_ARG(int, 4)));
    EXPECT_TRUE(QMetaObject::invokeMethod(feed, "setWidth", Q_ARG(int, 50)));
    EXPECT_TRUE(QMetaObject::invokeMethod(feed, "setHeight", Q_ARG(int, 60)));
    EXPECT_TRUE(QMetaObject::invokeMethod(feed, "setFortran", Q_ARG(bool, true)));
    EXPECT_EQ(surf.rank, 2);
    EXPECT_EQ(surf.xDimension, 3);
    EXPECT_EQ(surf.yDimension, 4);
    EXPECT_EQ(surf.width, 50);
    EXPECT_EQ(surf.height, 60);
    EXPECT_TRUE(surf.isFortran());
    int rank = 0;
    EXPECT_TRUE(QMetaObject::invokeMethod(feed, "getRank", Q_RETURN_ARG(int, rank)));
    EXPECT_EQ(rank, 2);
    bool fortran = false;
    EXPECT_TRUE(QMetaObject::invokeMethod(feed, "isFortran", Q_RETURN_ARG(bool, fortran)));
    EXPECT_TRUE(fortran);

    QSignalSpy available(&surf, &DataQObject::dataAvailable);
    const QJsonDocument doc(QJsonObject{{"z", QJsonArray{doubles({1, 2})}}});
    EXPECT_TRUE(feed->setProperty("dataJson", QVariant::fromValue(doc)));
    EXPECT_EQ(surf.dataJson, doc);
    EXPECT_EQ(available.count(), 1);
}

TEST(DataObjects, SurfaceReadsNoFurtherThanItsValuesWhenRowsAndColumnsPromiseMore) {
    SurfDataQObject surf;
    surf.setxDimension(3);
    surf.setyDimension(2);
    double values[] = {1, 2, 3, 4, 5};
    surf.setData(values, 5, 10, 10, QString());
    EXPECT_EQ(surf.dataJson.object().value("z").toArray(),
              (QJsonArray{doubles({1, 2}), doubles({3, 4})}));
    EXPECT_EQ(surf.dataJson.object().value("x").toArray(),
              (QJsonArray{ints({0, 0}), ints({1, 1})}));
}

TEST(ChartFeed, DocumentWrittenAfterSetDataIsPublishedInsteadOfThePlot) {
    LineDataQObject line;
    double values[] = {1, 2, 3};
    line.setData(values, 3, 1, 1, QString());
    EXPECT_FALSE(line.packedJson().isNull());
    const QJsonDocument doc(QJsonObject{{"x", ints({0})}, {"y", doubles({-4.5})}});
    line.setProperty("dataJson", QVariant::fromValue(doc));
    EXPECT_TRUE(line.packedJson().isNull());
    EXPECT_EQ(unpackF64(line.channelObject()->dataJson().object().value("y")),
              (std::vector<double>{-4.5}));
}

TEST(ChartFeed, PackedFormMadeFromTheValuesEqualsTheDocumentPacked) {
    double values[] = {0.5, -1, 1e-300, 7, 8, 9};
    LineDataQObject line;
    line.setData(values, 6, 1, 1, QString());
    EXPECT_EQ(line.packedJson(), QJsonDocument(ChartFeed::pack(line.dataJson.object()).toObject()));
    HistDataQObject hist;
    hist.setData(values, 6, 1, 1, QString());
    EXPECT_EQ(hist.packedJson(), QJsonDocument(ChartFeed::pack(hist.dataJson.object()).toObject()));
    for (bool fortran : {false, true}) {
        SurfDataQObject surf;
        surf.setxDimension(2);
        surf.setyDimension(3);
        surf.setFortran(fortran);
        surf.setData(values, 6, 1, 1, QString());
        EXPECT_EQ(surf.packedJson(),
                  QJsonDocument(ChartFeed::pack(surf.dataJson.object()).toObject()))
            << fortran;
    }
    HistDataQObject empty;
    empty.setData(nullptr, 0, 1, 1, QString());
    EXPECT_EQ(empty.packedJson(),
              QJsonDocument(ChartFeed::pack(empty.dataJson.object()).toObject()));
}

TEST(ChartFeed, WholeNumbersTravelAsIntegersAndEverythingElseAsDoubles) {
    const double whole[] = {0, -1, 2147483647, -2147483648.0, 12};
    const QJsonObject asInts = ChartFeed::packDoubles(whole, 5).toObject();
    EXPECT_EQ(asInts.keys(), QStringList{"$i32"});
    EXPECT_EQ(unpackF64(asInts), (std::vector<double>(whole, whole + 5)));

    for (double odd :
         {-0.0, 2147483648.0, 0.5, -2147483649.0, std::numeric_limits<double>::quiet_NaN()}) {
        const double values[] = {1, 2, odd};
        const QJsonObject packed = ChartFeed::packDoubles(values, 3).toObject();
        EXPECT_EQ(packed.keys(), QStringList{"$f64"}) << odd;
        const std::vector<double> back = unpackF64(packed);
        ASSERT_EQ(back.size(), 3u);
        EXPECT_EQ(std::memcmp(back.data(), values, sizeof values), 0) << odd;
    }
    // The line's positions are whole: they take the short form.
    LineDataQObject line;
    double values[] = {0.25, 0.5};
    line.setData(values, 2, 1, 1, QString());
    EXPECT_TRUE(line.channelObject()->dataJson().object().value("x").toObject().contains("$i32"));
    EXPECT_TRUE(line.channelObject()->dataJson().object().value("y").toObject().contains("$f64"));
}
