// SPDX-License-Identifier: MIT
#include "capture/frame_ring.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <vector>

#include "capture/unique_fd.h"

namespace {

using Result = hx::FrameWriter::Result;

constexpr hx::RingShape kShape{.slots = 3, .slotBytes = 100};

class FrameRing : public testing::Test {
  protected:
    // A container that tells which one it is, by its bytes and its length.
    static std::vector<std::uint8_t> container(unsigned int number) {
        return std::vector<std::uint8_t>(1 + number % kShape.slotBytes,
                                         static_cast<std::uint8_t>(number));
    }

    Result put(unsigned int number) { return writer_.put(container(number), 1000 + number); }

    void expectNext(unsigned int number) {
        SCOPED_TRACE(number);
        const auto frame = reader_.front();
        ASSERT_TRUE(frame.has_value());
        EXPECT_EQ(frame->number, number);
        EXPECT_EQ(frame->takenNs, 1000 + number);
        const auto bytes = container(number);
        EXPECT_TRUE(std::ranges::equal(frame->container, std::as_bytes(std::span(bytes))));
        reader_.release();
    }

    static hx::UniqueFd memory() {
        hx::UniqueFd fd(memfd_create("ring", 0));
        EXPECT_EQ(ftruncate(fd.get(), static_cast<off_t>(hx::ringBytes(kShape))), 0);
        return fd;
    }

    hx::UniqueFd fd_ = memory();
    hx::RingMapping mapping_{fd_.get(), kShape};
    hx::FrameWriter writer_{mapping_.data(), kShape};
    hx::FrameReader reader_{mapping_.data(), kShape};
};

TEST_F(FrameRing, KeepsOrderAndBytesAndShowsWhatItDrops) {
    unsigned int number = 0;
    for (; number < 250; ++number) {
        ASSERT_EQ(put(number), Result::stored);
        expectNext(number);
    }
    EXPECT_FALSE(reader_.front().has_value());
    for (const auto result : {Result::stored, Result::stored, Result::stored, Result::dropped}) {
        EXPECT_EQ(put(number++), result);
    }
    // Nothing of the dropped one went over the frame that is read now.
    expectNext(250);
    EXPECT_EQ(put(254), Result::stored);
    for (const unsigned int next : {251U, 252U, 254U}) expectNext(next);
}

TEST_F(FrameRing, RefusesWhatFitsNoSlot) {
    const std::vector<std::uint8_t> bytes(kShape.slotBytes + 1);
    EXPECT_EQ(writer_.put(bytes, 0), Result::tooLong);
    EXPECT_FALSE(reader_.front().has_value());
    EXPECT_EQ(writer_.put(std::span(bytes).first(kShape.slotBytes), 0), Result::stored);
    EXPECT_EQ(reader_.front()->container.size(), kShape.slotBytes);
}

TEST_F(FrameRing, BelievesNoNumberOfTheOtherSide) {
    auto& indices = *reinterpret_cast<hx::RingIndices*>(mapping_.data());
    auto& slot = *reinterpret_cast<hx::SlotHeader*>(mapping_.data() + sizeof(hx::RingIndices));
    put(0);
    for (const std::uint64_t length : {std::uint64_t{101}, ~std::uint64_t{0}}) {
        slot.length = length;
        EXPECT_THROW(reader_.front(), hx::RingFault) << length;
    }
    reader_.release();
    // Backwards is as impossible as too far.
    for (const std::uint64_t written : {std::uint64_t{5}, ~std::uint64_t{0}, std::uint64_t{0}}) {
        indices.written = written;
        EXPECT_THROW(reader_.front(), hx::RingFault) << written;
    }
}

TEST(RingShape, WithoutRoomIsAnError) {
    for (const hx::RingShape& shape : {hx::RingShape{0, 100}, {3, 0}, {4, ~std::size_t{0} / 4}}) {
        EXPECT_THROW(hx::ringBytes(shape), std::invalid_argument);
    }
}

}  // namespace
