// SPDX-License-Identifier: MIT
#include "capture/frame_ring.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <vector>

#include "capture/unique_fd.h"

namespace {

constexpr hx::RingShape kShape{.slots = 3, .slotBytes = 100};

class FrameRing : public testing::Test {
  protected:
    FrameRing() : writer_(mapping_.data(), kShape), reader_(mapping_.data(), kShape) {}

    // A container that tells which one it is, by its bytes and its length.
    static std::vector<std::uint8_t> container(unsigned int number) {
        return std::vector<std::uint8_t>(1 + number % kShape.slotBytes,
                                         static_cast<std::uint8_t>(number));
    }

    hx::FrameWriter::Result put(unsigned int number) {
        return writer_.put(container(number), 1000 + number);
    }

    void expectFront(unsigned int number) {
        SCOPED_TRACE(number);
        const auto frame = reader_.front();
        ASSERT_TRUE(frame.has_value());
        EXPECT_EQ(frame->number, number);
        EXPECT_EQ(frame->takenNs, 1000 + number);
        const auto bytes = container(number);
        EXPECT_TRUE(std::ranges::equal(frame->container, std::as_bytes(std::span(bytes))));
    }

    static hx::UniqueFd memory() {
        hx::UniqueFd fd(memfd_create("ring", 0));
        EXPECT_EQ(ftruncate(fd.get(), static_cast<off_t>(hx::ringBytes(kShape))), 0);
        return fd;
    }

    hx::UniqueFd fd_ = memory();
    hx::RingMapping mapping_{fd_.get(), kShape};
    hx::FrameWriter writer_;
    hx::FrameReader reader_;
};

TEST_F(FrameRing, KeepsOrderAndBytesRoundAfterRound) {
    EXPECT_FALSE(reader_.front().has_value());
    for (unsigned int number = 0; number < 250; ++number) {
        ASSERT_EQ(put(number), hx::FrameWriter::Result::stored);
        expectFront(number);
        reader_.release();
    }
    EXPECT_FALSE(reader_.front().has_value());
}

TEST_F(FrameRing, DropsWhenFullAndShowsTheGap) {
    for (unsigned int number = 0; number < 3; ++number) put(number);
    EXPECT_EQ(put(3), hx::FrameWriter::Result::dropped);
    EXPECT_EQ(put(4), hx::FrameWriter::Result::dropped);
    // Nothing of the dropped ones went over the frame that is being read.
    expectFront(0);
    reader_.release();
    EXPECT_EQ(put(5), hx::FrameWriter::Result::stored);
    for (const unsigned int number : {1U, 2U, 5U}) {
        expectFront(number);
        reader_.release();
    }
}

TEST_F(FrameRing, RefusesWhatFitsNoSlot) {
    const std::vector<std::uint8_t> exact(kShape.slotBytes);
    const std::vector<std::uint8_t> longer(kShape.slotBytes + 1);
    EXPECT_EQ(writer_.put(longer, 0), hx::FrameWriter::Result::tooLong);
    EXPECT_FALSE(reader_.front().has_value());
    EXPECT_EQ(writer_.put(exact, 0), hx::FrameWriter::Result::stored);
    EXPECT_EQ(reader_.front()->container.size(), exact.size());
}

TEST_F(FrameRing, BelievesNoNumberOfTheOtherSide) {
    auto& indices = *reinterpret_cast<hx::RingIndices*>(mapping_.data());
    auto& slot = *reinterpret_cast<hx::SlotHeader*>(mapping_.data() + sizeof(hx::RingIndices));
    put(0);
    for (const std::uint64_t length : {std::uint64_t{101}, ~std::uint64_t{0}}) {
        slot.length = length;
        EXPECT_THROW(reader_.front(), hx::RingFault) << length;
    }
    slot.length = 1;
    for (const std::uint64_t written : {std::uint64_t{4}, ~std::uint64_t{0}}) {
        indices.written = written;
        EXPECT_THROW(reader_.front(), hx::RingFault) << written;
    }
    // Backwards is as impossible as too far.
    indices.written = 1;
    reader_.release();
    indices.written = 0;
    EXPECT_THROW(reader_.front(), hx::RingFault);
}

TEST(RingShape, WithoutRoomIsAnError) {
    const hx::RingShape shapes[] = {{0, 100}, {3, 0}, {4, ~std::size_t{0} / 4}};
    for (const hx::RingShape& shape : shapes) {
        EXPECT_THROW(hx::ringBytes(shape), std::invalid_argument);
    }
}

}  // namespace
