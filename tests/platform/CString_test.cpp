#include "platform/CString.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(CStringTest, SubstringsClampLikeMfc) {
  const CString s("abcdef");
  struct Case {
    CString got;
    const char* want;
  } cases[] = {
      {s.Left(2), "ab"},   {s.Left(-1), ""},      {s.Left(99), "abcdef"}, {s.Right(2), "ef"},
      {s.Right(99), "abcdef"}, {s.Right(-3), ""}, {s.Mid(4), "ef"},       {s.Mid(-2), "abcdef"},
      {s.Mid(2, 2), "cd"}, {s.Mid(5, 9), "f"},    {s.Mid(9, 1), ""},      {s.Mid(1, -1), ""},
  };
  for (const Case& c : cases) EXPECT_EQ(std::string(c.got), c.want);
}

TEST(CStringTest, FindReportsMinusOneWhenAbsentOrStartBeyondEnd) {
  const CString s("a,b,,c");
  EXPECT_EQ(s.Find(','), 1);
  EXPECT_EQ(s.Find(',', 2), 3);
  EXPECT_EQ(s.Find(",,"), 3);
  EXPECT_EQ(s.Find("x"), -1);
  EXPECT_EQ(s.Find(',', 99), -1);
  EXPECT_EQ(s.ReverseFind(','), 4);
}

TEST(CStringTest, CaseChangesTouchAsciiLettersOnly) {
  CString s("Ab.XLS\xC9\xE9");
  s.MakeLower();
  EXPECT_EQ(std::string(s), "ab.xls\xC9\xE9");
  s.MakeUpper();
  EXPECT_EQ(std::string(s), "AB.XLS\xC9\xE9");
}

TEST(CStringTest, FormatHandlesLongResults) {
  CString s;
  const std::string big(10000, 'x');
  s.Format("\"%s\"%s", big.c_str(), ",;.?");
  EXPECT_EQ(s.GetLength(), 10006);
  EXPECT_EQ(std::string(s.Right(5)), "\",;.?");
  s.AppendFormat("%d", 42);
  EXPECT_EQ(std::string(s.Right(2)), "42");
}

TEST(CStringTest, DeleteAndInsertClamp) {
  CString s("CREATE TABLE [S] (");
  s.Delete(s.GetLength() - 2, 2);
  EXPECT_EQ(std::string(s), "CREATE TABLE [S]");
  CString e;
  EXPECT_EQ(e.Delete(-1, 5), 0);
  s.Insert(99, "!");
  EXPECT_EQ(s.Right(1), CString("!"));
}

TEST(CStringTest, GetAtChecksItsIndex) {
  const CString s("ab");
  EXPECT_EQ(s.GetAt(1), 'b');
  EXPECT_EQ(s.GetAt(2), '\0');  // the terminator may be read, as in MFC
  EXPECT_THROW(s.GetAt(3), CInvalidArgException*);
  EXPECT_THROW(s.GetAt(-1), CInvalidArgException*);
}

TEST(CStringTest, ComparisonsAreBytewise) {
  EXPECT_TRUE(CString("Price") == "Price");
  EXPECT_FALSE(CString("Price") == "PRICE");
  EXPECT_TRUE(CString("a") < CString("b"));
  EXPECT_EQ(CString("abc").CompareNoCase("ABC"), 0);
  EXPECT_LT(CString("abc").Compare("abd"), 0);
}

TEST(CStringArrayTest, IndexChecksRaiseInvalidArgument) {
  CStringArray a;
  a.Add("x");
  EXPECT_THROW(a.GetAt(1), CInvalidArgException*);
  EXPECT_THROW(a.GetAt(-1), CInvalidArgException*);
  EXPECT_THROW(a.SetAt(1, "y"), CInvalidArgException*);
  EXPECT_THROW(a.ElementAt(-1), CInvalidArgException*);
  EXPECT_THROW(a.SetAtGrow(-1, "y"), CInvalidArgException*);
  EXPECT_THROW(a.InsertAt(-1, "y"), CInvalidArgException*);
  EXPECT_THROW(a.RemoveAt(0, 2), CInvalidArgException*);
  EXPECT_EQ(a.GetSize(), 1);
}

TEST(CStringArrayTest, InsertBeyondTheEndGrowsWithEmptyStrings) {
  CStringArray a;
  a.Add("a");
  a.InsertAt(3, "d");
  ASSERT_EQ(a.GetSize(), 4);
  EXPECT_EQ(std::string(a[1]), "");
  EXPECT_EQ(std::string(a[2]), "");
  EXPECT_EQ(std::string(a[3]), "d");
  a.InsertAt(0, "z", 2);
  EXPECT_EQ(a.GetSize(), 6);
  EXPECT_EQ(std::string(a[1]), "z");
  EXPECT_EQ(std::string(a[2]), "a");
}

TEST(CStringArrayTest, GrowAppendCopyRemove) {
  CStringArray a;
  a.SetAtGrow(2, "c");
  EXPECT_EQ(a.GetCount(), 3);
  CStringArray b;
  b.Add("x");
  EXPECT_EQ(a.Append(b), 3);
  a.Append(a);  // appending to itself doubles it
  EXPECT_EQ(a.GetSize(), 8);
  b.Copy(a);
  EXPECT_EQ(b.GetSize(), 8);
  b.RemoveAt(0, 3);
  EXPECT_EQ(std::string(b[0]), "x");
  b.RemoveAll();
  EXPECT_TRUE(b.IsEmpty());
}

TEST(CExceptionTest, StaticExceptionsSurviveDelete) {
  for (int i = 0; i < 2; ++i) {
    try {
      AfxThrowInvalidArgException();
    } catch (CInvalidArgException* e) {
      char buffer[8];
      EXPECT_TRUE(e->GetErrorMessage(buffer, sizeof buffer));
      EXPECT_STREQ(buffer, "Invalid");  // cut to the buffer, always terminated
      e->Delete();
    }
  }
}

}  // namespace
