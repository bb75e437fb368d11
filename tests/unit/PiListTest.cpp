#include "Common/ComFunc/PiList.h"

#include <gtest/gtest.h>

static int mThings[32];

static void *Thing(size_t number) {
    return &mThings[number];
}

// Installs identifiers 1 to count with a pointer each, in an empty list.
static void FillList(size_t count) {
    for (PiEntry &entry : gPiList)
        entry = {0, nullptr};
    for (size_t i = 1; i <= count; ++i)
        EXPECT_EQ(InstallPiList(static_cast<uint32_t>(i), Thing(i)), 0u);
}

static size_t ListLength() {
    size_t length = 0;
    while (length < PI_LIST_SIZE && gPiList[length].interface != nullptr)
        ++length;
    return length;
}

// The pointer of an identifier, NULL without an entry.
static void *Locate(uint32_t id) {
    void *interface = nullptr;
    EFI_STATUS status = LocatePiList(id, &interface);
    EXPECT_EQ(status, interface == nullptr ? 0x8000000E : 0u);
    return interface;
}

TEST(PiList, WhatIsInstalledIsLocated) {
    FillList(3);
    EXPECT_EQ(Locate(1), Thing(1));
    EXPECT_EQ(Locate(3), Thing(3));
    EXPECT_EQ(Locate(4), nullptr);
    EXPECT_EQ(ListLength(), 3u);
}

TEST(PiList, AnEmptyListHasNothing) {
    FillList(0);
    EXPECT_EQ(Locate(0), nullptr); // not even the identifier of an empty place
    EXPECT_EQ(Locate(1), nullptr);
    EXPECT_EQ(UninstallPiList(1, Thing(1)), 0x8000000Eu);
}

TEST(PiList, InstallingAnIdentifierTwiceKeepsTheFirstPointer) {
    FillList(2);
    EXPECT_EQ(InstallPiList(1, Thing(9)), 0u);
    EXPECT_EQ(Locate(1), Thing(1));
    EXPECT_EQ(ListLength(), 2u);
}

TEST(PiList, TheListHolds16Entries) {
    FillList(16);
    EXPECT_EQ(ListLength(), 16u);
    EXPECT_EQ(InstallPiList(17, Thing(17)), 0x80000009u);
    EXPECT_EQ(InstallPiList(16, Thing(17)), 0u); // there already
    EXPECT_EQ(Locate(16), Thing(16));
    EXPECT_EQ(Locate(17), nullptr);
}

TEST(PiList, InstallingMarksTheNextPlaceEmpty) {
    FillList(0);
    gPiList[1] = {99, Thing(30)}; // left behind
    EXPECT_EQ(InstallPiList(1, Thing(1)), 0u);
    EXPECT_EQ(ListLength(), 1u);
    EXPECT_EQ(Locate(99), nullptr);
}

TEST(PiList, TheLastPlaceIsMarkedEmptyToo) {
    FillList(14);
    gPiList[15] = {99, Thing(30)}; // left behind
    EXPECT_EQ(InstallPiList(15, Thing(15)), 0u);
    EXPECT_EQ(ListLength(), 15u);
}

TEST(PiList, UninstallingMovesTheLaterEntriesForward) {
    FillList(3);
    EXPECT_EQ(UninstallPiList(2, Thing(2)), 0u);
    EXPECT_EQ(Locate(3), Thing(3));
    EXPECT_EQ(Locate(2), nullptr);
    EXPECT_EQ(ListLength(), 2u);
    EXPECT_EQ(gPiList[1].id, 3u);
    EXPECT_EQ(UninstallPiList(1, Thing(1)), 0u);
    EXPECT_EQ(UninstallPiList(3, Thing(3)), 0u);
    EXPECT_EQ(ListLength(), 0u);
}

TEST(PiList, UninstallingTheLastOfAFullListMakesRoom) {
    FillList(16);
    EXPECT_EQ(UninstallPiList(16, Thing(16)), 0u);
    EXPECT_EQ(ListLength(), 15u);
    EXPECT_EQ(InstallPiList(17, Thing(17)), 0u);
    EXPECT_EQ(Locate(17), Thing(17));
    EXPECT_EQ(UninstallPiList(1, Thing(1)), 0u);
    EXPECT_EQ(ListLength(), 15u);
    EXPECT_EQ(Locate(17), Thing(17));
}

TEST(PiList, UninstallingNeedsIdentifierAndPointer) {
    FillList(2);
    EXPECT_EQ(UninstallPiList(1, Thing(2)), 0x8000000Eu);
    EXPECT_EQ(UninstallPiList(3, Thing(1)), 0x8000000Eu);
    EXPECT_EQ(UninstallPiList(9, nullptr), 0x8000000Eu); // as an empty place has it
    EXPECT_EQ(UninstallPiList(1, nullptr), 0x8000000Eu);
    EXPECT_EQ(ListLength(), 2u);
}

TEST(PiList, SeveralPairsAreInstalledAndUninstalled) {
    FillList(0);
    EXPECT_EQ(InstallMutiplePiList(1u, Thing(1), 2u, Thing(2), 3u, Thing(3), 0u), 0u);
    EXPECT_EQ(ListLength(), 3u);
    EXPECT_EQ(UninstallMutiplePiList(1u, Thing(1), 3u, Thing(3), 0u), 0u);
    EXPECT_EQ(ListLength(), 1u);
    EXPECT_EQ(Locate(2), Thing(2));
}

TEST(PiList, ANullPointerEndsThePairsToo) {
    FillList(0);
    EXPECT_EQ(InstallMutiplePiList(1u, Thing(1), 2u, static_cast<void *>(nullptr)), 0u);
    EXPECT_EQ(ListLength(), 1u);
}

TEST(PiList, AnEmptyListOfPairsIsInvalid) {
    FillList(1);
    EXPECT_EQ(InstallMutiplePiList(0u), 0x80000002u);
    EXPECT_EQ(InstallMutiplePiList(5u, static_cast<void *>(nullptr)), 0x80000002u);
    EXPECT_EQ(UninstallMutiplePiList(0u), 0x80000002u);
    EXPECT_EQ(ListLength(), 1u);
}

TEST(PiList, PairsStopAtTheFirstFailure) {
    FillList(2);
    UninstallMutiplePiList(9u, Thing(9), 1u, Thing(1), 0u); // there is no 9
    EXPECT_EQ(ListLength(), 2u);
    FillList(15);
    InstallMutiplePiList(20u, Thing(20), 21u, Thing(21), 22u, Thing(22), 0u);
    EXPECT_EQ(Locate(20), Thing(20));
    EXPECT_EQ(Locate(21), nullptr);
    EXPECT_EQ(ListLength(), 16u);
}
