#include <vorn/runtime.h>

#include "support/guard_buffer.h"

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

using vorn_test::GuardBuffer;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes ToBytes(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

uint32_t EncodedSize(size_t length)
{
    const Bytes data(length, 'x');
    uint32_t size = 0;
    EXPECT_EQ(VornBase64EncodeBuffer(data.data(), static_cast<int32_t>(length), nullptr, &size), VORN_OK);
    return size;
}

// The text without its terminating zero, which must stand where the size says. Input and output lie flush
// against guard pages.
std::string Encode(const Bytes& data)
{
    const GuardBuffer input = GuardBuffer::Of(data.data(), data.size());
    const GuardBuffer output(EncodedSize(data.size()));
    uint32_t size = 0;
    EXPECT_EQ(
        VornBase64EncodeBuffer(input.Data(), static_cast<int32_t>(data.size()), output.As<char>(), &size),
        VORN_OK);
    EXPECT_EQ(size, output.Size());
    EXPECT_EQ(output.As<char>()[size - 1], '\0');
    return std::string(output.As<char>(), size - 1);
}

uint32_t DecodedBound(const std::string& text)
{
    uint32_t size = 0xABCDEF;
    EXPECT_EQ(VornBase64DecodeBuffer(text.data(), static_cast<uint32_t>(text.size()), nullptr, &size),
              VORN_OK);
    return size;
}

VornStatus Decode(const std::string& text, Bytes* data)
{
    const GuardBuffer input = GuardBuffer::Of(text.data(), text.size());
    const GuardBuffer output(DecodedBound(text));
    uint32_t size = 0;
    const VornStatus status =
        VornBase64DecodeBuffer(input.As<char>(), static_cast<uint32_t>(text.size()), output.Data(), &size);
    EXPECT_LE(size, output.Size());
    data->assign(output.Data(), output.Data() + (status == VORN_OK ? size : 0));
    return status;
}

VornStatus DecodeStatus(const std::string& text)
{
    Bytes data;
    return Decode(text, &data);
}

std::string Decoded(const std::string& text)
{
    Bytes data;
    EXPECT_EQ(Decode(text, &data), VORN_OK) << text;
    return std::string(data.begin(), data.end());
}

// Bit by bit, as slow as can be.
std::string ModelEncode(const Bytes& data)
{
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    size_t groups = 0;
    for (size_t at = 0; at < data.size(); at += 3) {
        for (size_t sextet = 0; sextet < 4; ++sextet) {
            if (at + sextet > data.size()) {
                text += '=';
                continue;
            }
            unsigned value = 0;
            for (size_t bit = 6 * sextet; bit < 6 * sextet + 6; ++bit) {
                const size_t index = at + bit / 8;
                const unsigned byte = index < data.size() ? data[index] : 0;
                value = value * 2 + ((byte >> (7 - bit % 8)) & 1);
            }
            text += alphabet[value];
        }
        if (++groups % 19 == 0) text += "\r\n";
    }
    return text;
}

}  // namespace

TEST(Base64Encode, RefusesNullPointersAndLengthsNotAboveZero)
{
    const uint8_t data[1] = {0};
    char text[8];
    uint32_t size = 7;
    EXPECT_EQ(VornBase64EncodeBuffer(nullptr, 1, text, &size), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornBase64EncodeBuffer(data, 0, text, &size), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornBase64EncodeBuffer(data, -1, text, &size), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornBase64EncodeBuffer(data, INT32_MIN, nullptr, &size), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornBase64EncodeBuffer(data, 1, text, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(size, 7u);
}

TEST(Base64Encode, AsksForTheSizeWithLineBreaksAndTheZeroByte)
{
    EXPECT_EQ(EncodedSize(1), 5u);
    EXPECT_EQ(EncodedSize(2), 5u);
    EXPECT_EQ(EncodedSize(3), 5u);
    EXPECT_EQ(EncodedSize(4), 9u);
    EXPECT_EQ(EncodedSize(54), 73u);
    EXPECT_EQ(EncodedSize(55), 79u);
    EXPECT_EQ(EncodedSize(56), 79u);
    EXPECT_EQ(EncodedSize(57), 79u);
    EXPECT_EQ(EncodedSize(58), 83u);
    EXPECT_EQ(EncodedSize(114), 157u);
}

TEST(Base64Encode, AsksForTheSizeOfTheLongestInputWithoutTouchingIt)
{
    const uint8_t data[1] = {0};
    uint32_t size = 0;
    EXPECT_EQ(VornBase64EncodeBuffer(data, INT32_MAX, nullptr, &size), VORN_OK);
    EXPECT_EQ(size, 2863311532u + 2 * 37675151u + 1);
}

TEST(Base64Encode, PadsTheLastGroup)
{
    EXPECT_EQ(Encode(ToBytes("f")), "Zg==");
    EXPECT_EQ(Encode(ToBytes("fo")), "Zm8=");
    EXPECT_EQ(Encode(ToBytes("foo")), "Zm9v");
    EXPECT_EQ(Encode(ToBytes("foob")), "Zm9vYg==");
    EXPECT_EQ(Encode(ToBytes("fooba")), "Zm9vYmE=");
    EXPECT_EQ(Encode(ToBytes("foobar")), "Zm9vYmFy");
}

TEST(Base64Encode, UsesEveryCharacterOfTheAlphabet)
{
    EXPECT_EQ(Encode({0x00, 0x10, 0x83, 0x10, 0x51, 0x87, 0x20, 0x92, 0x8B, 0x30, 0xD3, 0x8F,
                      0x41, 0x14, 0x93, 0x51, 0x55, 0x97, 0x61, 0x96, 0x9B, 0x71, 0xD7, 0x9F,
                      0x82, 0x18, 0xA3, 0x92, 0x59, 0xA7, 0xA2, 0x9A, 0xAB, 0xB2, 0xDB, 0xAF,
                      0xC3, 0x1C, 0xB3, 0xD3, 0x5D, 0xB7, 0xE3, 0x9E, 0xBB, 0xF3, 0xDF, 0xBF}),
              "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
}

TEST(Base64Encode, BreaksTheLineAfterNineteenGroups)
{
    const std::string line(76, 'A');
    EXPECT_EQ(Encode(Bytes(57)), line + "\r\n");
    EXPECT_EQ(Encode(Bytes(56)), line.substr(1) + "=\r\n");
    EXPECT_EQ(Encode(Bytes(55)), line.substr(2) + "==\r\n");
    EXPECT_EQ(Encode(Bytes(54)), line.substr(4));
    EXPECT_EQ(Encode(Bytes(58)), line + "\r\nAA==");
    EXPECT_EQ(Encode(Bytes(114)), line + "\r\n" + line + "\r\n");
}

TEST(Base64Encode, AgreesWithTheModelForEveryLengthUpTo700AndRandomBytes)
{
    std::mt19937 random(20261121);
    for (size_t length = 1; length <= 700; ++length) {
        Bytes data(length);
        for (uint8_t& byte : data) byte = static_cast<uint8_t>(random());
        const std::string text = Encode(data);
        ASSERT_EQ(text, ModelEncode(data)) << length;
        Bytes back;
        ASSERT_EQ(Decode(text, &back), VORN_OK) << length;
        ASSERT_EQ(back, data) << length;
    }
}

TEST(Base64Decode, RefusesNullPointersAndLengthZero)
{
    uint8_t data[4];
    uint32_t size = 7;
    EXPECT_EQ(VornBase64DecodeBuffer(nullptr, 4, data, &size), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornBase64DecodeBuffer("AAAA", 0, data, &size), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornBase64DecodeBuffer("AAAA", 4, data, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornBase64DecodeBuffer("AAAA", 4, nullptr, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(size, 7u);
}

TEST(Base64Decode, AsksForABoundThatKeepsLineBreaks)
{
    EXPECT_EQ(DecodedBound("AA=="), 1u);
    EXPECT_EQ(DecodedBound("AAA="), 2u);
    EXPECT_EQ(DecodedBound("AAAA"), 3u);
    EXPECT_EQ(DecodedBound("AAAAAAA"), 3u);
    EXPECT_EQ(DecodedBound("AAAA\r\nAA=="), 4u);
    EXPECT_EQ(DecodedBound("AA==\r\n\r\n"), 6u);
    EXPECT_EQ(DecodedBound("A"), 0u);
    EXPECT_EQ(DecodedBound(Encode(Bytes(57))), 57u);
    EXPECT_EQ(DecodedBound(Encode(Bytes(570))), 585u);
}

TEST(Base64Decode, AsksForNothingWhenThePaddingIsLongerThanTheGroups)
{
    EXPECT_EQ(DecodedBound("="), 0u);
    EXPECT_EQ(DecodedBound("=="), 0u);
    EXPECT_EQ(DecodedBound("A=="), 0u);
}

TEST(Base64Decode, TurnsGroupsIntoBytes)
{
    EXPECT_EQ(Decoded("Zg=="), "f");
    EXPECT_EQ(Decoded("Zm8="), "fo");
    EXPECT_EQ(Decoded("Zm9v"), "foo");
    EXPECT_EQ(Decoded("Zm9vYg=="), "foob");
    EXPECT_EQ(Decoded("Zm9vYmE="), "fooba");
    EXPECT_EQ(Decoded("Zm9vYmFy"), "foobar");
    EXPECT_EQ(Decoded("++//"), "\xFB\xEF\xFF");
}

TEST(Base64Decode, IgnoresTheUnusedBitsOfAPaddedGroup)
{
    EXPECT_EQ(Decoded("Zh=="), "f");
    EXPECT_EQ(Decoded("Zm9="), "fo");
}

TEST(Base64Decode, SkipsLineBreaksAnywhere)
{
    EXPECT_EQ(Decoded("Zm9v\nYmFy"), "foobar");
    EXPECT_EQ(Decoded("Zm9v\r\nYmFy"), "foobar");
    EXPECT_EQ(Decoded("\n\r\n\nZm9vYmFy"), "foobar");
    EXPECT_EQ(Decoded("Z\nm\n9\nv\nY\r\nm\r\nF\r\ny"), "foobar");
    EXPECT_EQ(Decoded("Zm9vYmFy\n"), "foobar");
    EXPECT_EQ(Decoded("Zm9vYmFy\r\n\n\r\n"), "foobar");
    EXPECT_EQ(Decoded("Zg\r\n=="), "f");
    EXPECT_EQ(Decoded("Zg==\r\n"), "f");
    EXPECT_EQ(Decoded("Zm8\n="), "fo");
}

TEST(Base64Decode, RefusesATextOfNothingButLineBreaks)
{
    EXPECT_EQ(DecodeStatus("\n"), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("\r\n"), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("\n\r\n\n\n\r\n\r\n"), VORN_E_BAD_DATA);
}

TEST(Base64Decode, RefusesALoneCarriageReturn)
{
    EXPECT_EQ(DecodeStatus("\r"), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zm9v\r"), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zm9v\r\r\n"), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zm9v\rYmFy"), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zm9v\r\r\nYmFy"), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Z\rm9v"), VORN_E_BAD_DATA);
}

TEST(Base64Decode, RefusesPaddingAnywhereButAtTheEnd)
{
    EXPECT_EQ(DecodeStatus("Zg==Zg=="), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zm8=Zm8="), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Z==="), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("===="), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("="), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("=="), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zg=A"), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zg=\n="), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zg=\r\n="), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zm9v="), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zm9v=="), VORN_E_BAD_DATA);
}

TEST(Base64Decode, RefusesGroupsThatAreNotComplete)
{
    EXPECT_EQ(DecodeStatus("Z"), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zm"), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zm9"), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zm9vY"), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zm9vYm\r\n"), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zm9vY="), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zm9vY=="), VORN_E_BAD_DATA);
    EXPECT_EQ(DecodeStatus("Zm9vYm="), VORN_E_BAD_DATA);
}

TEST(Base64Decode, RefusesEveryByteOutsideTheAlphabetAtEveryPosition)
{
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::string good(200, 'Q');
    for (int value = 0; value < 256; ++value) {
        const char c = static_cast<char>(value);
        const bool isDigit = c != '\0' && alphabet.find(c) != std::string::npos;
        for (size_t at = 0; at < good.size(); at += value % 16 == 0 ? 1 : 13) {
            std::string text = good;
            text[at] = c;
            const bool padsTheEnd = c == '=' && at == good.size() - 1;
            const VornStatus expected = isDigit || padsTheEnd ? VORN_OK : VORN_E_BAD_DATA;
            ASSERT_EQ(DecodeStatus(text), expected) << "byte " << value << " at " << at;
        }
    }
}

TEST(Base64Decode, KeepsTheBoundWhenTheTextIsMalformed)
{
    uint8_t data[16];
    uint32_t size = 0;
    EXPECT_EQ(VornBase64DecodeBuffer("Zm9v!m8=", 8, data, &size), VORN_E_BAD_DATA);
    EXPECT_EQ(size, 5u);
}

TEST(Base64Decode, WritesNothingBehindTheBytesItReports)
{
    std::mt19937 random(7);
    for (size_t length = 1; length <= 400; ++length) {
        Bytes data(length);
        for (uint8_t& byte : data) byte = static_cast<uint8_t>(random());
        const std::string text = Encode(data);
        Bytes output(DecodedBound(text) + 64, 0xA5);
        uint32_t size = 0;
        ASSERT_EQ(
            VornBase64DecodeBuffer(text.data(), static_cast<uint32_t>(text.size()), output.data(), &size),
            VORN_OK);
        ASSERT_EQ(size, length);
        ASSERT_EQ(Bytes(output.begin(), output.begin() + size), data);
        for (size_t i = size; i < output.size(); ++i) ASSERT_EQ(output[i], 0xA5) << length << " " << i;
    }
}
