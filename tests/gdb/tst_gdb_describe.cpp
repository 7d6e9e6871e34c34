// Arrays as programs hold them, described from one evaluation of the typed
// expression: C struct-pointer idioms with computed counts, C++ members in
// std::vector, Fortran module variables, pointer arrays and components
// across arrays of derived types. Every check compares with the values the
// example programs write themselves, or with gdb's own words.
#include "referencecheck.h"
#include "sharedstop.h"

using namespace gdbtest;

namespace {

class StructIdioms : public SharedStop {
protected:
    static void SetUpTestSuite() { start("example_structs_c", "structs_c.main"); }
};

class DomainMembers : public SharedStop {
protected:
    static void SetUpTestSuite() { start("example_domain_cpp", "domain_cpp.main"); }
};

} // namespace

TEST_F(StructIdioms, EveryArrayAndItsComputedCount) {
    checkEveryArray(*rig_);
    // The counts are those of the program, not gdb's `whatis` guess of 0.
    GdbExpression* vals = rig_->evaluate(QStringLiteral("*A->list_of_vals@A->local_nnz"));
    EXPECT_EQ(vals->getActualType(),
              QStringLiteral("double [%1]").arg(rig_->ref.value("counts.local_nnz")));
    auto info = rig_->info(vals);
    EXPECT_EQ(
        info->property("ArrayBounds").toStringList(),
        QStringList{QStringLiteral("0:%1").arg(rig_->ref.value("counts.local_nnz").toInt() - 1)});
    GdbExpression* regions =
        rig_->evaluate(QStringLiteral("*domain.m_regElemSize@domain.m_numReg"));
    auto stats = rig_->statistics(regions);
    EXPECT_EQ(stats->property("Count").toString(), rig_->ref.value("counts.m_numReg"));

    // A cast of the block starts from its first element, not from the whole
    // block gdb would have to read to take its address.
    vals->setType(QStringLiteral("float"), true);
    EXPECT_EQ(vals->getAlternateExpression(), QStringLiteral("*(float(*)[%1])&(*A->list_of_vals)")
                                                  .arg(rig_->ref.value("counts.local_nnz")));
    auto floats = rig_->statistics(vals);
    ASSERT_EQ(resultOf(floats), QStringLiteral("done")) << msgOf(floats).toStdString();
    EXPECT_EQ(floats->property("Count").toString(), rig_->ref.value("counts.local_nnz"));
}

TEST_F(StructIdioms, AFunctionInTheExpressionRunsOncePerEvaluationAndRequest) {
    const int before = value(QStringLiteral("blocks_handed_out")).toInt();
    EXPECT_EQ(before, rig_->ref.value("counts.blocks_handed_out").toInt());
    GdbExpression* block = rig_->evaluate(QStringLiteral("*next_block()@16"));
    ASSERT_FALSE(block->hasError()) << block->getErrorMessage().toStdString();
    EXPECT_EQ(value(QStringLiteral("blocks_handed_out")).toInt(), before + 1);
    auto stats = rig_->statistics(block);
    ASSERT_EQ(resultOf(stats), QStringLiteral("done")) << msgOf(stats).toStdString();
    EXPECT_EQ(stats->property("Count").toInt(), 16);
    rig_->info(block);
    rig_->plot(block);
    rig_->table(block, QString(), 0, 0, 0, 0, 15);
    EXPECT_EQ(value(QStringLiteral("blocks_handed_out")).toInt(), before + 5);
}

TEST_F(StructIdioms, CountsThatAreNoLengthAreRefusedInGdbsWords) {
    EXPECT_EQ(rig_->ref.value("counts.m_numGhost"), QStringLiteral("0"));
    EXPECT_EQ(rig_->ref.value("counts.m_numNode"), QStringLiteral("-1"));
    const Words cases[] = {
        {"*domain.m_ghostE@domain.m_numGhost", "Invalid number 0 of repetitions."},
        {"*domain.m_nodalMass@domain.m_numNode", "Invalid number -1 of repetitions."},
        {"*A->list_of_vals@2.5", "Non-integral right operand for \"@\" operator."},
        {"A->local_nnz * 2@3", "Only values in memory can be extended with '@'."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expression);
        GdbExpression* e = rig_->evaluate(QLatin1String(c.expression));
        EXPECT_TRUE(e->hasError());
        EXPECT_EQ(e->getErrorMessage(), QLatin1String(c.words));
        EXPECT_EQ(refusalOf(QLatin1String(c.expression)),
                  QStringLiteral("error ") + QLatin1String(c.words));
    }
}

TEST_F(StructIdioms, APointerOrAnArrayWithoutLengthSaysHowToShowIt) {
    GdbExpression* p = rig_->evaluate(QStringLiteral("A->list_of_vals"));
    EXPECT_FALSE(p->hasError());
    EXPECT_FALSE(p->isArray());
    EXPECT_EQ(refusalOf(QStringLiteral("A->list_of_vals")),
              QStringLiteral("error A->list_of_vals is a pointer to double: show N elements with "
                             "*A->list_of_vals@N"));
    EXPECT_EQ(refusalOf(QStringLiteral("blk->rows")),
              QStringLiteral("error blk->rows is a pointer to double [12]: show N elements with "
                             "*blk->rows@N"));
    EXPECT_EQ(refusalOf(QStringLiteral("A->solver_data")),
              QStringLiteral("error A->solver_data is a pointer to void: give its elements a "
                             "type, for example *(double *)A->solver_data@N"));
    EXPECT_EQ(refusalOf(QStringLiteral("A->list_of_vals + 1")),
              QStringLiteral("error A->list_of_vals + 1 is a pointer to double: show N elements "
                             "with *(A->list_of_vals + 1)@N"));
    // gdb gives `double v[]` the bounds 0:0: one element would be a wrong
    // answer.
    GdbExpression* v = rig_->evaluate(QStringLiteral("hist->v"));
    EXPECT_EQ(v->getErrorMessage(),
              QStringLiteral("hist->v is declared without a length (its type is double []): show "
                             "N elements with *hist->v@N"));
    EXPECT_EQ(refusalOf(QStringLiteral("hist->v")),
              QStringLiteral("error ") + v->getErrorMessage());
}

TEST_F(DomainMembers, EveryArrayIncludingVectorsByTheirOwnNames) {
    checkEveryArray(*rig_);
    GdbExpression* e = rig_->evaluate(QStringLiteral("domain.m_e"));
    EXPECT_EQ(e->getActualType(), QStringLiteral("std::vector<double>"));
    EXPECT_EQ(e->facts().family, QStringLiteral("std::vector"));
}

TEST_F(DomainMembers, ContainersOfWhatIsNoNumberAreRefusedWithWhatToShow) {
    const Words cases[] = {
        {"domain.m_regElemList",
         "domain.m_regElemList is a std::vector of std::vector<int>, a container of containers: "
         "show one of them, for example domain.m_regElemList[0]."},
        {"domain.m_nodes", "domain.m_nodes is a std::vector of Node, which are structures, not "
                           "numbers: print a member of one of them, for example "
                           "domain.m_nodes[0].x."},
        {"domain.m_material",
         "domain.m_material is a std::vector of Material, which is not a number or a character: "
         "print one element, for example domain.m_material[0]."},
        {"domain.m_fields",
         "domain.m_fields is a std::vector of pointers (double *): show what one of them points "
         "to, for example *domain.m_fields[0]@N."},
        {"domain.m_elemActive",
         "domain.m_elemActive is a std::vector<bool>, which packs its elements as bits: show one "
         "element, for example domain.m_elemActive[0]."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expression);
        GdbExpression* e = rig_->evaluate(QLatin1String(c.expression));
        EXPECT_FALSE(e->hasError()) << e->getErrorMessage().toStdString();
        EXPECT_FALSE(e->isArray());
        EXPECT_EQ(refusalOf(QLatin1String(c.expression)),
                  QStringLiteral("error ") + QLatin1String(c.words));
        EXPECT_NE(valueOfOffered(QLatin1String(c.words)), QStringLiteral("<error>"));
    }
}

TEST_F(DomainMembers, AnEmptyVectorIsAnEmptyArray) {
    EXPECT_EQ(rig_->ref.value("counts.m_dtHistory"), QStringLiteral("0"));
    expectEmptyArray(*rig_, QStringLiteral("domain.m_dtHistory"));
}

TEST_F(DomainMembers, ACastReinterpretsTheElementsNotTheVector) {
    const ArrayRef m_e = reference(QStringLiteral("m_e"));
    GdbExpression* e = rig_->evaluate(QStringLiteral("domain.m_e"));
    e->setType(QStringLiteral("double [25][5]"), true);
    EXPECT_EQ(e->getAlternateExpression(), QStringLiteral("{double [25][5]} domain.m_e"));
    auto future = e->evaluate(rig_->debugger->currentFrame());
    ASSERT_TRUE(waitFor([&] { return future.isFinished(); }));
    ASSERT_FALSE(e->hasError()) << e->getErrorMessage().toStdString();
    EXPECT_EQ(e->getActualType(), QStringLiteral("double [25][5]"));
    auto info = rig_->info(e);
    EXPECT_EQ(info->property("ArrayBounds").toStringList(),
              (QStringList{QStringLiteral("0:24"), QStringLiteral("0:4")}));
    auto stats = rig_->statistics(e);
    ASSERT_EQ(resultOf(stats), QStringLiteral("done")) << msgOf(stats).toStdString();
    EXPECT_EQ(stats->property("Count").toInt(), 125);
    EXPECT_TRUE(near(number(m_e.values.value("sum")), stats->property("Sum").toDouble()));
    // m_e[64] is row 12, column 4.
    auto table = rig_->table(e, QString(), 0, 12, 12, 4, 4);
    ASSERT_EQ(resultOf(table), QStringLiteral("done")) << msgOf(table).toStdString();
    const QVariantList cells = table->property("TableDataList").toList();
    ASSERT_EQ(cells.size(), 1);
    EXPECT_TRUE(near(number(m_e.elements.value("[64]")),
                     number(cells.first().toMap().value("value").toString())));

    // An element type alone keeps the vector's length.
    e->setType(QStringLiteral("float"), true);
    EXPECT_EQ(e->getAlternateExpression(), QStringLiteral("{float [125]} domain.m_e"));
    auto floats = rig_->info(e);
    ASSERT_EQ(resultOf(floats), QStringLiteral("done")) << msgOf(floats).toStdString();
    EXPECT_EQ(floats->property("ActualType").toString(), QStringLiteral("float [125]"));
    EXPECT_EQ(floats->property("DataType").toInt(), 1);
    e->setType(QString(), true);
    EXPECT_FALSE(e->hasAlternateExpression());
}

TEST(HydroFortran, ModuleVariablesPointerArraysAndComponentsAtEveryStop) {
    auto rig = makeRig();
    QString why;
    ASSERT_TRUE(rig->startAt(QStringLiteral("example_hydro_fortran"),
                             QStringLiteral("hydro_f90.ideal_gas"), &why))
        << why.toStdString();
    // ideal_gas() uses definitions_module: chunk by its plain name.
    checkEveryArray(*rig);

    for (const char* stop : {"hydro_f90.restrict", "hydro_f90.main"})
        rig->mi(QStringLiteral("-break-insert ") + breakLocation(QLatin1String(stop)));
    ASSERT_TRUE(rig->runToStop(QStringLiteral("-exec-continue"), &why)) << why.toStdString();
    // The pointer array on a strided section, components across the array
    // of derived types.
    checkEveryArray(*rig);
    const Words refusals[] = {
        {"cells%nosuch", "There is no component nosuch in cells (of Type cell_state)."},
        {"cells%density%x", "cells%density is not of a derived type: it has no component x."},
        {"cells%mass_fraction", "cells has a component mass_fraction that is itself an array or a "
                                "derived type: show it for one element, for example "
                                "cells(1)%mass_fraction."},
    };
    for (const auto& c : refusals) {
        SCOPED_TRACE(c.expression);
        GdbExpression* e = rig->evaluate(QLatin1String(c.expression));
        EXPECT_EQ(e->getErrorMessage(), QLatin1String(c.words));
    }
    // The derived types themselves are no numbers: the words offer a
    // component across the array, in Fortran's syntax, which is shown.
    auto cells = rig->statistics(rig->evaluate(QStringLiteral("cells")));
    EXPECT_EQ(resultOf(cells), QStringLiteral("error"));
    EXPECT_TRUE(msgOf(cells).endsWith(QStringLiteral(
        "are not supported: they are of a derived type: show a component of every element, for "
        "example cells%material.")))
        << msgOf(cells).toStdString();
    auto material = rig->statistics(rig->evaluate(QStringLiteral("cells%material")));
    EXPECT_EQ(resultOf(material), QStringLiteral("done")) << msgOf(material).toStdString();

    ASSERT_TRUE(rig->runToStop(QStringLiteral("-exec-continue"), &why)) << why.toStdString();
    // The main program reaches the module only through another one: gdb
    // itself does not know the plain name here.
    auto plain = rig->mi(QStringLiteral("-data-evaluate-expression chunk%task"));
    ASSERT_TRUE(plain);
    EXPECT_TRUE(plain->isError());
    EXPECT_EQ(plain->errorMessage(), QStringLiteral("No symbol \"chunk\" in current context."));
    checkEveryArray(*rig);
    // Two modules have a `step`: the user is asked which.
    GdbExpression* step = rig->evaluate(QStringLiteral("step"));
    EXPECT_EQ(step->getErrorMessage(),
              QStringLiteral("step is a variable of the modules definitions_module, "
                             "timestep_module: name the one you mean, for example "
                             "definitions_module::step."));

    // The cast of the service's own still lays a component's elements out
    // from its first one.
    const QList<ArrayRef> density = arraysOf(rig->ref, {QStringLiteral("density0")});
    ASSERT_EQ(density.size(), 1);
    GdbExpression* flat = rig->evaluate(QStringLiteral("chunk%field%density0"));
    flat->setType(QStringLiteral("real(kind=8) (192)"), true);
    auto stats = rig->statistics(flat);
    ASSERT_EQ(resultOf(stats), QStringLiteral("done")) << msgOf(stats).toStdString();
    EXPECT_EQ(stats->property("Count").toInt(), 192);
    EXPECT_TRUE(
        near(number(density.first().values.value("sum")), stats->property("Sum").toDouble()));
}
