// Relation, field and command numbers that several parts of the library
// share. Numbers that only one function uses, and explains where it uses
// them, stay there.

#ifndef KORDLL_RECORD_RECORDIDS_H_
#define KORDLL_RECORD_RECORDIDS_H_

namespace kordll {

// Relation ids of the catalogue. Every stored record and every filter text
// names its relation by this number: these numbers are written to disk and
// must not change.
constexpr int kRelationPost = 4;           // "post": one item of a feed
constexpr int kRelationFocusableLink = 8;  // the pointer record of a link
constexpr int kRelationSecondPost = 11;    // "post", second kind, fields of 26
constexpr int kRelationHelpSection = 16;   // "helpsection"
constexpr int kRelationHelpTopic = 17;     // "helptopic"
constexpr int kRelationFile = 18;          // "file": a download
constexpr int kRelationNote = 25;          // "note": a user note
constexpr int kRelationSavedPost = 26;     // "savedpost": a post kept by the user

// Fields common to record relations. Field ids index the stored field
// list: these numbers are written to disk and must not change.
constexpr int kFieldGuid = 0;
constexpr int kFieldStatus = 1;
constexpr int kFieldReceiveDate = 2;
constexpr int kFieldPublicationDate = 3;
// The first field id after the common ones.
constexpr int kFirstOwnField = 4;

// Fields of the post relations (4, 11, 26; a link reaches its target's).
constexpr int kPostFieldTitle = 4;
constexpr int kPostFieldAuthors = 5;     // names separated by "|"
constexpr int kPostFieldCategories = 6;  // categories separated by "|"
constexpr int kPostFieldDescription = 7;
constexpr int kPostFieldChannel = 8;  // the published channel
constexpr int kPostFieldLink = 10;
constexpr int kPostFieldEncodedContent = 11;
constexpr int kPostFieldEnclosure = 15;  // "URL|length|MIME type" (relation 4)
// The title of a note (relation 25).
constexpr int kNoteFieldTitle = 5;

// Panel messages and commands. They are exchanged with the applications'
// panels and command handlers: these numbers must not change.
constexpr int kMainPanel = 1;                       // the panel that shows links and reports
constexpr int kPanelMessageShow = 1039;             // to the main panel: show what the request says
constexpr int kViewCommandShowLink = 1081;          // in a request of 1039: the text is a link
constexpr int kCommandPostProperties = 29120;       // a post's properties
constexpr int kCommandNoteProperties = 29169;       // a note's properties
constexpr int kCommandSavedPostProperties = 29170;  // a saved post's properties

}  // namespace kordll

#endif  // KORDLL_RECORD_RECORDIDS_H_
