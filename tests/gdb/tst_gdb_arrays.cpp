// The four operations on every array of every example, through a real gdb,
// checked against the numbers each example program works out and writes
// itself.
#include "referencecheck.h"

using namespace gdbtest;

namespace {
class GdbExamples : public ::testing::Test {};

} // namespace

TEST_F(GdbExamples, CArraysAtMain) {
    auto rig = makeRig();
    QString why;
    ASSERT_TRUE(
        rig->startAt(QStringLiteral("example_arrays_c"), QStringLiteral("arrays_c.main"), &why))
        << why.toStdString();
    checkEveryArray(*rig);
}

TEST_F(GdbExamples, CppArraysAtMainAndInAMember) {
    auto rig = makeRig();
    QString why;
    ASSERT_TRUE(
        rig->startAt(QStringLiteral("example_arrays_cpp"), QStringLiteral("arrays_cpp.main"), &why))
        << why.toStdString();
    checkEveryArray(*rig);
    rig->mi(QStringLiteral("-break-insert ") + breakLocation(QStringLiteral("arrays_cpp.member")));
    ASSERT_TRUE(rig->runToStop(QStringLiteral("-exec-continue"), &why)) << why.toStdString();
    checkEveryArray(*rig);
}

TEST_F(GdbExamples, FortranArraysInTheSectionAndAtMain) {
    auto rig = makeRig();
    QString why;
    ASSERT_TRUE(rig->startAt(QStringLiteral("example_arrays_fortran"),
                             QStringLiteral("arrays_f90.section"), &why))
        << why.toStdString();
    checkEveryArray(*rig);
    rig->mi(QStringLiteral("-break-insert ") + breakLocation(QStringLiteral("arrays_f90.main")));
    ASSERT_TRUE(rig->runToStop(QStringLiteral("-exec-continue"), &why)) << why.toStdString();
    checkEveryArray(*rig);
}

TEST_F(GdbExamples, HeatPlate) {
    auto rig = makeRig();
    QString why;
    ASSERT_TRUE(rig->startAt(QStringLiteral("example_heat"), QStringLiteral("heat.heat"), &why))
        << why.toStdString();
    checkEveryArray(*rig);
}
