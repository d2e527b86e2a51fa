#include "KVOSrvMtxExceptions.h"

#include "ExpectThrows.h"
#include "atr_Translate.h"

#include <cstring>

template<class Exception>
static void Check(Exception exception, int number, std::string const& message)
{
    SCOPED_TRACE(message);
    KVOBasException const& base = exception;
    EXPECT_EQ(base.ErrorNumber(), number);
    for (auto const& text : {base.AsString(), base.UserReport(), base.DeveloperReport()}) // never thrown: no position
        EXPECT_EQ(text.View(), message);
    EXPECT_THROW(base.Raise(), Exception); // the most-derived class, although raised through the base
    auto const raise = [&] { exception.Throw("mtx/impl/KVOSrvMatrix", 4711); };
    EXPECT_EQ(ReportOf<Exception>(raise), message + "\nFile mtx/impl/KVOSrvMatrix, line 4711");
    EXPECT_THROW(raise(), KVOBasException);
    EXPECT_THROW(raise(), mem_AllocationOperators);
}

TEST(KVOSrvMtxExceptions, NumberMessageAndHandlers)
{
    Check(KVOSrvMtxNoSymmetricTrue("PermuteRows"), 201, "KVOSrvSparseMatrix::PermuteRows symmetric:True not supported!");
    Check(KVOSrvMtxOpenFileException("/tmp/a b.mtx"), 202, "KVOSrvSparseImExPorter: Failed to open file /tmp/a b.mtx.");
    Check(KVOSrvMtxInvalidGetRange(), 203, "KVOSrvDenseMatrix::GetValues invalid range values.");
    Check(KVOSrvMtxInvalidSetRange(), 204, "KVOSrvDenseMatrix::SetValues invalid range values.");
    Check(KVOSrvMtxIllegalInput("Factorize"), 206, "KVOSrvMatrix::Factorize - Illegal input.");
    Check(KVOSrvMtxRefusedInput("KVOSrvDenseMatrix", "Multiply", "X is %s"), 206, "KVOSrvDenseMatrix::Multiply - Illegal input: X is %s.");
    Check(KVOSrvMtxNotAssembled("Multiply"), 206,
          "KVOSrvSparseMatrix::Multiply - Illegal input: the added entries are not assembled, call EndAssembly first.");
    EXPECT_THROW(KVOSrvMtxRefusedInput("", "", "").Raise(), KVOSrvMtxIllegalInput);
    Check(KVOSrvMtxUnsupportedExpFmt(), 207, "KVOSrvSparseImExPorter: Unsupported export format.");
    Check(KVOSrvMtxFileWriteFailure("out.csv"), 208, "Error at writing to file: out.csv");
    Check(KVOSrvMtxNoUnsymmetric(), 209, "KVOSrvSparseMatrix::%s symmetric:True not supported!");
    Check(KVOSrvMtxUnsupportedImpFmt(), 210, "KVOSrvSparseImExPorter: Unsupported import format.");
    Check(KVOSrvMtxNoTranspose(), 211, "KVOSrvSparseMatrix::MultiplyIndexed transpose:False not supported!");
    Check(KVOSrvMtxIllegalPermVect(), 212, "KVOSrvMatrix::PermuteRowsInPlace - Illegal perm Vector.");
    Check(KVOSrvMtxSolveIllegalArg(-8), 213, "KVOSrvMatrix::SolveEigenproblemSymmetric - Illegal function argument -8.");
    Check(KVOSrvMtxSolveNotConverge(), 214, "KVOSrvMatrix::SolveEigenproblemSymmetric - Eigensolver did not converge.");
    Check(KVOSrvMtxSolveNotPositive(), 215, "KVOSrvMatrix::SolveEigenproblemSymmetric - Matrix B is not positive-definite.");
    Check(KVOSrvMtxDivByZero(), 218, "KVOSrvMatrix::Factorize - division by 0.");

    // A payload is taken as it stands.
    Check(KVOSrvMtxIllegalInput("%s %i 100%"), 206, "KVOSrvMatrix::%s %i 100% - Illegal input.");
    Check(KVOSrvMtxIllegalInput(""), 206, "KVOSrvMatrix:: - Illegal input.");
    Check(KVOSrvMtxOpenFileException(nullptr), 202, "KVOSrvSparseImExPorter: Failed to open file .");
    std::string name = "SetSlice";
    KVOSrvMtxIllegalInput const exception(name.c_str());
    KVOSrvMtxIllegalInput copy("Add");
    name.assign("destroyed");
    copy = exception;
    Check(copy, 206, "KVOSrvMatrix::SetSlice - Illegal input.");
}

TEST(KVOSrvMtxExceptions, AMalformedFileIsAnUnsupportedOneThatSaysMore)
{
    std::string const message = "KVOSrvSparseImExPorter: Unsupported import format.";
    try {
        KVOSrvMtxMalformedFile("a %s.txt", 7, -1, "expected 1 %i").Throw("mtx/impl/X", 12);
    } catch (KVOSrvMtxUnsupportedImpFmt const& caught) {
        EXPECT_EQ(caught.ErrorNumber(), 210);
        EXPECT_EQ(caught.AsString().View(), message);
        EXPECT_EQ(caught.UserReport().View(), message + " a %s.txt: line 7: expected 1 %i.");
        EXPECT_EQ(caught.DeveloperReport().View(), message + "\nFile mtx/impl/X, line 12\na %s.txt: line 7: expected 1 %i.");
    }
    KVOSrvMtxMalformedFile const binary(nullptr, 0, std::int64_t{1} << 40, nullptr);
    EXPECT_EQ(std::string(binary.Path()) + binary.Expected(), "");
    EXPECT_EQ(binary.Line(), 0);
    EXPECT_EQ(binary.Byte(), std::int64_t{1} << 40);
    EXPECT_EQ(binary.Place().View(), "byte 1099511627776");
    EXPECT_THROW(static_cast<KVOBasException const&>(binary).Raise(), KVOSrvMtxMalformedFile);
}

TEST(KVOSrvMtxExceptions, MessageIsTranslatedWhenAsked)
{
    KVOSrvMtxIllegalInput const exception("Add");
    atr_Lookup const before = atr_SetLookup([](char const* format) -> char const* {
        return std::strcmp(format, "KVOSrvMatrix::%s - Illegal input.") == 0 ? "Eingabe von %s falsch" : nullptr;
    });

    EXPECT_STREQ(exception.AsString().c_str(), "Eingabe von Add falsch");
    atr_SetLookup(before);
    EXPECT_STREQ(exception.AsString().c_str(), "KVOSrvMatrix::Add - Illegal input.");
}

TEST(KVOSrvMtxExceptions, LivesOnThePlatformsHeap)
{
    mem_FailAllocationAfter(0);
    EXPECT_THROW(new KVOSrvMtxDivByZero, mem_OutOfMemory);
    for (int successes = 0; successes < 2; ++successes) { // the text and its count
        mem_FailAllocationAfter(successes);
        EXPECT_THROW(KVOSrvMtxIllegalInput("Multiply"), mem_OutOfMemory) << successes;
    }
    mem_FailAllocationAfter(-1);
    delete static_cast<KVOBasException const*>(new KVOSrvMtxIllegalInput("Multiply"));
}
