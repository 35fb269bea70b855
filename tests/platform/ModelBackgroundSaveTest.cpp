#include "ModelLibrary.hpp"

#include <future>

namespace velto::model::test {
namespace {

constexpr std::size_t many = 8'900; // a save of several pieces, each of several turns

/// Places in a save of so many books: while the first piece is captured, after it was written, and when the
/// last one is on its way.
constexpr std::size_t stages[] = {100, 4'500, many - 1};

class ModelBackgroundSave : public ModelTest {
  protected:
    void SetUp() override {
        ModelTest::SetUp();
        fill();
    }

    /// A shelf and two spare ones that are stored, and books on it that are not.
    void fill() {
        shelf = addShelf("shelf");
        spares = {addShelf("spare"), addShelf("another")};
        context().save();
        books.clear();
        for (std::size_t i = 0; i < many; ++i) {
            books.push_back(make<Book>(shelf));
            books.back()->edit().pages = 1;
        }
    }

    /// Starts a save and stops in the middle, as soon as this book is captured.
    void startAndReach(std::size_t book) {
        startSave();
        runtime.runUntil([&] { return !books[book]->hasChanges(); });
        ASSERT_TRUE(outcomes.empty());
    }

    /// Starts what comes to an end in several turns, and stops after the first of them.
    void startOneTurn(Task<void> task) {
        start(std::move(task));
        bool isOver = false;
        asio::post(runtime.main(), [&] { isOver = true; });
        runtime.runUntil([&] { return isOver; });
        ASSERT_TRUE(outcomes.empty());
    }

    [[nodiscard]] std::string stored(const std::string& what) const {
        return sql("SELECT " + what + " FROM Book");
    }

    Ref<Shelf> shelf;
    std::vector<Ref<Shelf>> spares;
    std::vector<Ref<Book>> books;
};

TEST_F(ModelBackgroundSave, ChangesBetweenItsTurnsAreNeitherLostNorTorn) {
    for (const std::size_t stage : stages) {
        SCOPED_TRACE(stage);
        const auto named = addShelf("renamed before its name is taken");
        startAndReach(stage);
        named->edit().name = "renamed";
        const auto late = addShelf("late");
        context().remove(books.back()); // captured already, or still to be: both ends of the order
        context().remove(books.front());
        for (const auto& book : shelf->books.all())
            book->edit().shelf = late;
        books[1]->edit().title = "late";
        context().remove(shelf);
        finish();
        EXPECT_FALSE(failure) << describe(failure);
        expectStored();
        EXPECT_EQ(context().findUnique<Shelf>("name", "late")->books.size(), many - 2);
        startAnew();
        fill();
    }
}

TEST_F(ModelBackgroundSave, AFailureOfAnyPieceMakesAllOfItPendingAgain) {
    for (const std::size_t place : {0UL, 5'000UL, many - 1}) {
        SCOPED_TRACE(place);
        books[place]->edit().pages = 2;
        context().remove(books[10]);
        const std::string before = contents();
        sql("CREATE TRIGGER obstacle BEFORE INSERT ON Book WHEN NEW.pages = 2 "
            "BEGIN SELECT RAISE(ABORT, 'obstacle'); END");
        startSave();
        finish();
        EXPECT_TRUE(failure);
        EXPECT_TRUE(context().hasChanges());
        EXPECT_EQ(stored("count(*)"), "0");
        EXPECT_EQ(contents(), before);
        sql("DROP TRIGGER obstacle");
        startSave();
        finish();
        EXPECT_FALSE(failure) << describe(failure);
        EXPECT_EQ(stored("count(*)"), std::to_string(many - 1));
        expectStored();
        startAnew();
        fill();
    }
}

TEST_F(ModelBackgroundSave, ARefusalIsToldToWhoeverSavesAndFailsNobody) {
    const auto refused = addShelf("shelf");
    startSave();
    startSave(); // its caller may be the owner of what the first one meets
    finish(2);
    EXPECT_FALSE(failure) << describe(failure);
    for (const SaveOutcome& outcome : ended)
        EXPECT_EQ(failureOf([&] { outcome.throwIfRefused(refused); }), StoreError::Case::duplicateValue);
    EXPECT_EQ(stored("count(*)"), std::to_string(many));

    for (const bool isTakenOver : {false, true}) {
        const auto second = addShelf("shelf");
        const auto doomed = addShelf("doomed");
        startRemoval({doomed, shelf->books.front()});
        if (isTakenOver) {
            runtime.runUntil([&] { return !second->hasChanges(); }); // on its way
            EXPECT_TRUE(context().save().refuses(second));
        }
        finish();
        EXPECT_FALSE(failure) << describe(failure);
        EXPECT_TRUE(second->isDeleted() && doomed->isDeleted());
        EXPECT_EQ(stored("count(*)"), std::to_string(shelf->books.size()));
        EXPECT_FALSE(context().hasChanges());
    }
    EXPECT_EQ(shelf->books.size(), many - 2);
}

TEST_F(ModelBackgroundSave, APlainSaveMayComeBetween) {
    for (const std::size_t stage : stages) {
        SCOPED_TRACE(stage);
        const auto refused = make<Book>(shelf); // in the last piece
        refused->edit().id = books[0]->id;
        context().remove(spares[0]);
        startAndReach(stage);
        EXPECT_TRUE(context().save().refuses(refused));
        EXPECT_EQ(stored("sum(pages)"), std::to_string(many));
        context().remove(spares[1]);
        for (const auto& book : books)
            book->edit().pages = 2;
        finish();
        EXPECT_FALSE(failure) << describe(failure);
        EXPECT_TRUE(ended.front().refuses(refused)) << "or its owner would hear nothing of it";
        startSave();
        startSave();
        finish(2);
        EXPECT_FALSE(failure) << describe(failure);
        EXPECT_EQ(stored("sum(pages)"), std::to_string(2 * many));
        expectStored();
        startAnew();
        fill();
    }
}

TEST_F(ModelBackgroundSave, APoolThatWaitsForADriveHoldsUpNeitherSaveNorLoadNorRemoval) {
    struct DeadDrive {
        std::promise<void> answer;
        std::shared_future<void> answered = answer.get_future().share();

        ~DeadDrive() { answer.set_value(); }
    } drive;

    for (int i = 0; i < 64; ++i) // more than the pool has threads
        asio::post(runtime.executors().pool, [answered = drive.answered] { answered.wait(); });
    startSave();
    finish();
    EXPECT_EQ(stored("count(*)"), std::to_string(many));
    reopen();
    start(loadInBackground(context(), runtime.executors()));
    finish();
    startRemoval({context().fetch<Shelf>().front()});
    finish();
    EXPECT_EQ(stored("count(*)"), "0");
}

TEST_F(ModelBackgroundSave, LoadingInTheBackgroundGivesTheSameGraphAndYieldsToAPlainLoad) {
    context().save();
    for (const bool isInterrupted : {false, true}) {
        reopen();
        start(loadInBackground(context(), runtime.executors()));
        if (isInterrupted) {
            runtime.poll();
            shelf = context().fetch<Shelf>().front();
            make<Book>(shelf);
        }
        finish();
        EXPECT_FALSE(failure) << describe(failure);
        EXPECT_EQ(isInterrupted, context().fetch<Shelf>().front() == shelf) << "its objects stay";
        EXPECT_EQ(context().count<Book>(), many + (isInterrupted ? 1 : 0));
        EXPECT_EQ(context().fetch<Shelf>().front()->books.size(), context().count<Book>());
    }
}

TEST_F(ModelBackgroundSave, AnIndexMadeInTurnsFollowsWhatHappensBetweenThem) {
    const Uuid oldEarly = books[1]->id, oldLate = books[many - 2]->id;
    startOneTurn(indexInBackground(context(), entityDescription<Book>(), 0));
    for (const std::size_t end : {0UL, many - 1}) // one end is indexed already, the other is not
        context().remove(books[end]);
    for (const std::size_t changed : {1UL, many - 2})
        books[changed]->edit().id = Uuid::random();
    const auto added = make<Book>(shelf);
    finish();
    EXPECT_FALSE(failure) << describe(failure);
    for (const Uuid& gone : {books.front()->id, books.back()->id, oldEarly, oldLate})
        EXPECT_FALSE(context().findUnique<Book>("id", gone));
    for (const auto& book : shelf->books)
        ASSERT_EQ(context().findUnique<Book>("id", book->id), book);
    EXPECT_EQ(context().findUnique<Book>("id", added->id), added);
}

TEST_F(ModelBackgroundSave, AVisitInTurnsSeesWhatIsThereAtItsTurn) {
    std::vector<Ref<Book>> seen;
    const auto keep = [&](const Ref<Book>& book) { seen.push_back(book); };
    startOneTurn(forEachInTurns<Book>(context(), keep));
    context().remove(seen.back()); // where the next turn goes on
    context().remove(books.back());
    books.back() = make<Book>(shelf);
    finish();
    EXPECT_EQ(seen, books);
}

TEST_F(ModelBackgroundSave, TheContextMayGoInTheMiddle) {
    for (const std::size_t stage : stages) {
        startSave();
        startAndReach(stage); // this one waits for the first
        container.reset();
        finish(2);
        EXPECT_TRUE(shelf->books.empty());
        open();
        EXPECT_EQ(context().count<Shelf>(), 3U);
        EXPECT_EQ(stored("count(*)"), std::to_string(stage == many - 1 ? many : 0));
        startAnew();
        fill();
    }
}

} // namespace
} // namespace velto::model::test
