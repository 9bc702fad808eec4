#include <gtest/gtest.h>

#include "mail/Mailer.h"

using namespace vocle::server;

TEST(MailFormatTest, Rfc5322MessageWithCrlfAndNoHeaderInjection) {
    MailMessage m{"Vocle <login@vocle.test>", "ada@example.com", "Code\r\nBcc: evil@example.com",
                  "Line one\nLine two"};
    const std::string text = formatRfc5322(m, 1800000000, "ID@vocle.test");
    EXPECT_EQ(text.rfind("From: Vocle <login@vocle.test>\r\nTo: ada@example.com\r\n", 0), 0u);
    EXPECT_NE(text.find("Subject: Code  Bcc: evil@example.com\r\n"), std::string::npos);  // one header line
    EXPECT_NE(text.find("Date: Fri, 15 Jan 2027 08:00:00 +0000\r\n"), std::string::npos);
    EXPECT_NE(text.find("Message-ID: <ID@vocle.test>\r\n"), std::string::npos);
    EXPECT_NE(text.find("\r\n\r\nLine one\r\nLine two\r\n"), std::string::npos);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n') {
            EXPECT_EQ(text[i - 1], '\r') << "bare line feed at " << i;
        }
    }
    EXPECT_EQ(mailAddress("Vocle <login@vocle.test>"), "login@vocle.test");
    EXPECT_EQ(mailAddress("plain@vocle.test"), "plain@vocle.test");
}
