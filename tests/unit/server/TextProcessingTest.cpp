#include <gtest/gtest.h>

#include "formatting/TemplateCatalogue.h"
#include "formatting/TextFormatter.h"
#include "formatting/TextReplacer.h"
#include "formatting/VocabularyCorrector.h"

using namespace vocle::server;

TEST(TextFormatterTest, CleanRemovesFillersCapitalisesAndEndsSentences) {
    EXPECT_EQ(text_formatter::clean("um so i think uh we should go"), "So I think we should go.");
    EXPECT_EQ(text_formatter::clean("hello full stop how are you question mark i'm fine"),
              "Hello. How are you? I'm fine.");
    EXPECT_EQ(text_formatter::clean("well comma that works exclamation mark"), "Well, that works!");
    EXPECT_EQ(text_formatter::clean("um"), "");
    EXPECT_EQ(text_formatter::clean(""), "");
    EXPECT_EQ(text_formatter::clean("Already done."), "Already done.");
}

TEST(TextFormatterTest, LayoutsAreDeterministic) {
    const std::string spoken = "first point full stop second point full stop third point";
    EXPECT_EQ(text_formatter::format(Layout::Raw, "um hello  there"), "um hello  there");
    EXPECT_EQ(text_formatter::format(Layout::Clean, spoken), "First point. Second point. Third point.");
    EXPECT_EQ(text_formatter::format(Layout::Message, "see you at noon"), "See you at noon");
    EXPECT_EQ(text_formatter::format(Layout::Message, "are you coming question mark"), "Are you coming?");
    EXPECT_EQ(text_formatter::format(Layout::SimpleNote, spoken),
              "First point.\nSecond point.\nThird point.");
    EXPECT_EQ(text_formatter::format(Layout::OrganizedNote, spoken),
              "- First point.\n- Second point.\n- Third point.");
}

TEST(TextFormatterTest, EmailGetsGreetingBodyAndSignOff) {
    EXPECT_EQ(text_formatter::format(Layout::Email, "hi john the report is ready full stop thanks"),
              "Hi John,\n\nThe report is ready.\n\nThanks,");
    EXPECT_EQ(text_formatter::format(Layout::Email, "the meeting moved to friday"),
              "Hi,\n\nThe meeting moved to friday.\n\nBest regards,");
    EXPECT_EQ(text_formatter::format(Layout::Email, ""), "");
}

TEST(TextReplacerTest, WholeWordsCaseInsensitiveInListOrder) {
    const std::vector<TextReplacement> list = {
        {"slack at here", "@here"}, {"new line", "\n"}, {"cat", "dog"}, {"dog", "bird"}};
    EXPECT_EQ(applyReplacements("Slack at HERE please", list), "@here please");
    // "cat" must not match inside "concatenate"; later entries see earlier results.
    EXPECT_EQ(applyReplacements("concatenate the cat", list), "concatenate the bird");
    EXPECT_EQ(applyReplacements("first new line second", list), "first\nsecond");
    EXPECT_EQ(applyReplacements("a  slack   at here", list), "a  @here");
    EXPECT_EQ(applyReplacements("nothing", {{"", "x"}}), "nothing");
}

TEST(TextReplacerTest, ReplacementTextIsNotRescanned) {
    EXPECT_EQ(applyReplacements("go go", {{"go", "go go"}}), "go go go go");
}

TEST(VocabularyCorrectorTest, NearMissesBecomeTheListedTerm) {
    const auto terms = parseVocabulary("Kubernetes, GitHub,  Vocle\n PostgreSQL ,");
    ASSERT_EQ(terms.size(), 4u);
    EXPECT_EQ(applyVocabulary("deploy it on kubernetis today", terms), "deploy it on Kubernetes today");
    EXPECT_EQ(applyVocabulary("push to get hub, then rest", terms), "push to GitHub, then rest");
    EXPECT_EQ(applyVocabulary("the vocal track", terms), "the vocal track");
    EXPECT_EQ(applyVocabulary("use postgres sql", terms), "use PostgreSQL");
    EXPECT_EQ(applyVocabulary("vocle", terms), "Vocle");
}

TEST(VocabularyCorrectorTest, ShortWordsOnlyMatchExactly) {
    const auto terms = parseVocabulary("API");
    EXPECT_EQ(applyVocabulary("the api and the ape", terms), "the API and the ape");
    EXPECT_EQ(applyVocabulary("keep  spacing\nand lines", parseVocabulary("lines")),
              "keep  spacing\nand lines");
}

TEST(TemplateCatalogueTest, OffersTheDefaultTypeAndFindsByIdOrName) {
    TemplateCatalogue catalogue;
    const auto doc = catalogue.document();
    std::vector<std::string> names;
    for (const auto& t : doc.at("mode_types")) {
        names.push_back(t.at("name"));
        EXPECT_EQ(t.at("language"), "English");
        EXPECT_TRUE(t.contains("description"));
        EXPECT_TRUE(t.at("display").is_boolean());
    }
    for (const char* wanted : {"Raw", "Clean", "Message", "Email", "Simple Note", "Organized Note"}) {
        EXPECT_NE(std::find(names.begin(), names.end(), wanted), names.end()) << wanted;
    }
    ASSERT_NE(catalogue.find(std::string(kDefaultModeTypeId), "whatever"), nullptr);
    EXPECT_EQ(catalogue.find(std::nullopt, "raw")->layout, Layout::Raw);
    EXPECT_EQ(catalogue.find(std::nullopt, "organized note")->layout, Layout::OrganizedNote);
    EXPECT_EQ(catalogue.find(std::string("nope"), "Custom"), nullptr);
}
