#pragma once

#include "platform/model/Entity.hpp"
#include "platform/model/Sqlite.hpp"

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace velto::model {

/// A row's values apart from its object, so that they can be written on another thread. Its texts lie one
/// after the other: a large save captures and frees millions of values.
struct CapturedRow {
    struct Text {
        std::size_t offset;
        std::size_t length;
    };

    using Cell = std::variant<std::monostate, std::int64_t, double, Text>;

    [[nodiscard]] std::string_view view(Text text) const {
        return std::string_view(texts).substr(text.offset, text.length);
    }

    std::vector<Cell> cells;
    std::string texts;
};

/// Takes an object's values, one parameter after the other.
class RowSink {
  public:
    virtual ~RowSink() = default;
    virtual void null(int parameter) = 0;
    virtual void integer(int parameter, std::int64_t value) = 0;
    virtual void real(int parameter, double value) = 0;
    /// `isLasting`: the text lives as long as the object stays as it is.
    virtual void text(int parameter, std::string_view value, bool isLasting) = 0;
};

/// An entity's SQL and the way between its objects and rows. Parameter 1 of each statement is the row's id;
/// the attributes follow in their order, then the single-valued relationships.
class RowCodec {
  public:
    explicit RowCodec(const EntityDescription& entity)
        : entity_(entity) {}

    [[nodiscard]] const EntityDescription& entity() const { return entity_; }

    /// The row's id among them.
    [[nodiscard]] std::size_t columnCount() const {
        return 1 + entity_.attributes().size() + entity_.toOnes().size();
    }

    [[nodiscard]] std::vector<std::string> createStatements() const;
    [[nodiscard]] std::string selectAll() const;
    [[nodiscard]] std::string selectRow() const;
    [[nodiscard]] std::string insertRow() const;
    [[nodiscard]] std::string updateRow(bool withRelationships) const;
    [[nodiscard]] std::string deleteRow() const;

    void encode(Object& object, bool withRelationships, RowSink& sink) const;

    /// Fills an empty object from the statement's row. `targets` gets the row ids of its single-valued
    /// relationships, 0 for none. Throws StoreError (damaged) at a value that breaks the rules.
    void decode(const Statement& row, const Database& database, Object& object,
                std::vector<std::int64_t>& targets) const;

    /// Gives the object's attributes the values of the statement's row. Throws as decode() does.
    void restore(const Statement& row, const Database& database, Object& object) const;

  private:
    [[nodiscard]] std::vector<std::string> columns() const;
    [[nodiscard]] std::string select(const char* which) const;
    void decodeAttributes(const Statement& row, const Database& database, Object& object) const;

    const EntityDescription& entity_;
};

/// Binds values to a statement; lasting texts are not copied.
class StatementSink final : public RowSink {
  public:
    explicit StatementSink(Statement& statement)
        : statement_(statement) {}

    void null(int parameter) override { statement_.bindNull(parameter); }

    void integer(int parameter, std::int64_t value) override { statement_.bind(parameter, value); }

    void real(int parameter, double value) override { statement_.bind(parameter, value); }

    void text(int parameter, std::string_view value, bool isLasting) override {
        isLasting ? statement_.bindBorrowed(parameter, value) : statement_.bindCopied(parameter, value);
    }

  private:
    Statement& statement_;
};

class CaptureSink final : public RowSink {
  public:
    explicit CaptureSink(std::size_t columns) {
        row_.cells.reserve(columns);
        row_.texts.reserve(typicalTexts);
    }

    void null(int parameter) override { put(parameter, std::monostate()); }

    void integer(int parameter, std::int64_t value) override { put(parameter, value); }

    void real(int parameter, double value) override { put(parameter, value); }

    void text(int parameter, std::string_view value, bool) override {
        put(parameter, CapturedRow::Text{row_.texts.size(), value.size()});
        row_.texts += value;
    }

    [[nodiscard]] CapturedRow take() { return std::move(row_); }

  private:
    static constexpr std::size_t typicalTexts = 400; // bytes: a song's row, its path or its lists included

    void put(int parameter, CapturedRow::Cell cell) {
        row_.cells.resize(static_cast<std::size_t>(parameter));
        row_.cells.back() = cell;
    }

    CapturedRow row_;
};

} // namespace velto::model
