// The engine's own text network format (.vek, format number 4): a readable,
// diff-friendly form of everything the XML network format holds. Writing
// then reading gives back the same network; writing it again gives the same
// bytes.
//
// ---------------------------------------------------------------------------
// Lexical rules
// ---------------------------------------------------------------------------
// Comments: // and # to the end of the line, /* ... */. Any whitespace, CR,
// LF and CRLF line ends, and a UTF-8 byte order mark are skipped.
// WORD    letters, digits, '_' and bytes >= 0x80, not starting with a digit.
// STRING  "..." with C escapes (\" \\ \n \t \r \ooo \xHH \uXXXX).
// NUMBER  a C literal (12, -3, 0x1F, 1.5e-3) or inf / nan, optionally signed.
//         Doubles are written in the shortest form that reads back to the
//         same value; colours as 0xRRGGBB.
// ID      a WORD, or a STRING for identifiers that are not words ("@x").
// BOOL    true or false.
//
// ---------------------------------------------------------------------------
// Grammar
// ---------------------------------------------------------------------------
//   file   := item*                       exactly one `network` item
//   item   := WORD arg* ['=' value+] (';' | '{' item* '}' [';'])
//   arg    := WORD | STRING | NUMBER
//   value  := NUMBER | WORD | STRING | n/a | list
//   list   := '(' (value [','])* ')'
//
// The reader takes a block's fields in any order; each at most once, except
// those marked *. Unknown keywords are errors. The writer puts one field per
// line, in the order below, and leaves out fields that hold defaults.
//
//   network ID {
//       version = 1;                      a newer version is refused
//       name = STRING;  comment = STRING;
//       samples = N;  discsamples = N;  randseed = N;
//       zeroavoidance = BOOL;  outlierrejection = BOOL;
//       noisydecomp = BOOL;  noisydecomplimit = N;  slices = N;
//       epis { proplen = N; numstates = (N N N); eps = (D D D D); }
//       plate { center = X Y; size = W H; widths = LEFT RIGHT; }
//                                         the temporal plate's geometry
//       property STRING = STRING;    *    user properties, stored order
//       link STRING = STRING;        *    documentation: title = path
//       function = STRING;           *    user functions of equations
//       submodel ID { ... }          *    the submodel tree
//       node KIND ID { ... }         *    nodes in network order
//       textbox { ... }              *
//       case STRING { ... }          *    stored evidence cases
//   }
//
//   submodel ID { name; comment; PRESENTATION; submodel ID { ... }* }
//
//   PRESENTATION (nodes and submodels):
//       center = X Y;  size = W H;  interior = COLOR;  outline = COLOR;
//       outlinewidth = N;  selcolor = COLOR;  fontcolor = COLOR;
//       font = STRING SIZE [bold] [italic];
//
//   node KIND ID {    KIND: cpt deterministic decision utility mau cast
//                           demorgan noisymax noisyadder equation
//       name = STRING;  comment = STRING;  question = STRING;
//       states = (ID, ...);               kinds with outcomes (not utility, mau)
//       default = ID;
//       state ID { label = STRING; fault = BOOL; fix = STRING;
//                  comment = STRING; link STRING = STRING;* }
//       intervals = (D ...);  or  pointvalues = (D ...);
//       parents = (ID, ...);
//       target = BOOL;  diagtype = target | observation | auxiliary;
//       ranked = BOOL;  mandatory = BOOL;
//       dynamic = anchor | terminal | plate | N;     temporal type
//       submodel = ID;  PRESENTATION;  barchart = BOOL W H;
//       property STRING = STRING;*  link STRING = STRING;*
//       costparents = (ID, ...);  cost = (D or n/a ...);   observation costs
//       temporal ORDER {              *  plate nodes, one block per order
//           parents = (ID, ...);         temporal parents of that order
//           probabilities = (D ...);     static parents (anchors excepted),
//       }                                then temporal parents of orders
//                                        1..ORDER, own outcome fastest;
//                                        equation nodes: equation = STRING;
//                                        (id[-j] names a parent of order j)
//     by kind (tables in matrix order, the last index fastest, one row of
//     the node's own outcomes per line):
//       cpt            probabilities = (D ...);
//       deterministic  resultingstates = (ID or outcome index ...);
//       utility        utilities = (D ...);
//       mau            weights = (D ...);  expressions = (STRING, ...);
//       cast           pweights = (D ...);  nweights = (D ...);  baseline = D;
//       demorgan       types = (cause | inhibitor | requirement | barrier ...);
//                      weights = (D ...);  priorbelief = D;
//       noisymax       strengths = ((ID ...) ...);   per parent, its outcomes
//                                                     strongest first
//                      parameters = (D ...);  synchronized = BOOL;
//       noisyadder     function = average | singlefault;  dstate = ID;
//                      dstates = (ID ...);   per parent, its distinguished outcome
//                      weights = (D ...);  parameters = (D ...);
//       equation       equation = STRING;  bounds = D D;  defaultvalue = D;
//                      nominal = D D;  discretization = (D ...);  upper bounds
//                      labels = (ID or "" ...);  one per interval
//   }
//
//   textbox { text = STRING; submodel = ID; center = X Y; size = W H;
//             font = STRING SIZE [bold] [italic]; }
//
//   case STRING {
//       category = STRING;  created = N;  modified = N;  description = STRING;
//       evidence NODE [slice N] = OUTCOME;         *  outcome id or index
//       continuous NODE [slice N] = D [OUTCOME];   *
//       virtual NODE [slice N] = (D ...);          *
//       target NODE;                               *
//   }
//
// A table that is left out keeps the engine's default (up to a bounded
// size); a table that is given must have exactly the size the node's
// outcomes and parents give it. Outcome lists may also name outcomes by
// index.
//
// Faults (unknown keyword, wrong table size, unknown parent, cycle,
// duplicate identifier, bad value...) are logged as "Error at <line>,
// <column> while loading <file>: <message>" with code -103 (-100 when the
// file cannot be read); the dispatch then leaves the caller's network as it
// was.
#pragma once

#include <string>

#include "formats/fileFormat.h"

class VEK_vekSpeaker : public VEK_fileFormat {
public:
    explicit VEK_vekSpeaker(VEK_network& net) : VEK_fileFormat(net) {}

    [[nodiscard]] int ReadNetwork(const char* path) override;
    [[nodiscard]] int WriteNetwork(const char* path) override;
    // The network should be empty; identifiers already in it count as taken.
    [[nodiscard]] int ReadNetworkFromString(const char* text) override;
    [[nodiscard]] int WriteNetworkToString(std::string& out) override;
    // The reader finds cycles itself (with positions) and keeps its own
    // index of identifiers.
    bool SuppressAcyclic() const override { return true; }
    bool SuppressIdInUse() const override { return true; }

private:
    [[nodiscard]] int Read();
    [[nodiscard]] int Write();
};
