// Data-driven tests with a line for each case:
//   void adds_data() { const Rows<int, int> row; row("name: outcome", 1, 2); }
//   void adds() { const auto &[given, expected] = Row<int, int>(); … }
#pragma once

#include <QTest>

#include <tuple>

/// The cases of a test with these columns. To be used in its data function.
template <typename... Columns>
class Rows
{
public:
    Rows() { QTest::addColumn<std::tuple<Columns...>>("row"); }
    void operator()(const char *name, const Columns &...values) const
    {
        QTest::newRow(name) << std::tuple<Columns...>(values...);
    }
};

/// The case that the test is called for.
template <typename... Columns>
const std::tuple<Columns...> &Row()
{
    using Case = std::tuple<Columns...>;
    return *static_cast<const Case *>(QTest::qData("row", qMetaTypeId<Case>()));
}
