#include "JsonLine.h"

#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>

#include "Text.h"

TEST(JsonLine, FieldsKeepTheirOrderBehindTimeAndEvent)
{
    const std::string strLine =
        CJsonLine("upload").Text("path", "a").Number("bytes", 7).Flag("ok", true).ToString();
    EXPECT_EQ(strLine.find("{\"time\":\""), 0U);
    EXPECT_NE(strLine.find("\"event\":\"upload\",\"path\":\"a\",\"bytes\":7,\"ok\":true}"),
              std::string::npos);
}

TEST(JsonLine, AnyBytesGiveOneValidLine)
{
    std::string strAll;
    for (int i = 0; i < 256; ++i)
    {
        strAll += static_cast<char>(i);
    }
    const std::string strLine = CJsonLine("x").Text("path", strAll).ToString();
    EXPECT_TRUE(IsValidUTF8(strLine));
    EXPECT_EQ(strLine.find('\n'), std::string::npos);
    EXPECT_FALSE(nlohmann::json::parse(strLine, nullptr, false).is_discarded());
}

TEST(JsonLine, NumbersKeepEveryBit)
{
    const std::string strLine = CJsonLine("x").Number("bytes", ~0ULL).ToString();
    EXPECT_EQ(nlohmann::json::parse(strLine)["bytes"].get<unsigned long long>(), ~0ULL);
}

TEST(JsonLine, WhatIsNoNumberIsZero)
{
    const std::string strLine =
        CJsonLine("x").Real("rate", std::numeric_limits<double>::infinity()).ToString();
    EXPECT_EQ(nlohmann::json::parse(strLine)["rate"], 0.0);
}

TEST(JsonLine, TransferWithoutTimeHasNoRate)
{
    const nlohmann::json json = nlohmann::json::parse(CJsonLine("x").Moved(5, 0.0).ToString());
    EXPECT_EQ(json["bytes"], 5);
    EXPECT_EQ(json["bytes_per_second"], 0.0);
}

TEST(JsonLine, NumbersAreAnArray)
{
    const std::string strLine = CJsonLine("x").Numbers("list", {1, 4294967295U}).ToString();
    EXPECT_NE(strLine.find("\"list\":[1,4294967295]"), std::string::npos) << strLine;
}
