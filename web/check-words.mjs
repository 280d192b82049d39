// Checks that everything the page shows comes from its words, and that each word exists in every language:
//   - a text in a component, or a sentence anywhere, that is no word of a words.ts or of app/words.ts
//   - a word that i18n/catalogue.def lacks, or has with another English text or with other {0} in a language
//   - a word that its feature does not use, or that two lists have
import { readdirSync, readFileSync } from "node:fs";
import { basename, dirname, join, relative } from "node:path";
import { parseSync } from "vite";

const root = import.meta.dirname;
const catalogueFile = join(root, "../i18n/catalogue.def");

// Attributes that nobody reads. All others of a component are shown or read aloud.
const silent = new Set(
  ("accept action aria-activedescendant aria-atomic aria-busy aria-controls aria-current aria-describedby aria-hidden " +
    "aria-keyshortcuts aria-labelledby aria-live aria-modal as autocapitalize autocomplete class command d data-cell dataset decoding dir " +
    "draggable fill for form height href id inputMode inputmode key kind lang list method name open points preload r rel " +
    "role rx scope src step stroke stroke-linecap stroke-linejoin stroke-width style tabIndex target tone transform type value " +
    "viewBox when width x y cx cy").split(" "),
);
// Elements whose content the user types or presses literally, so it is the same in every language.
const verbatim = new Set(["code", "kbd", "pre"]);
// Functions whose argument is a selector.
const selecting = new Set(["closest", "matches", "querySelector", "querySelectorAll"]);
// Texts that are the same in every language, and why.
const names = new Map([
  ["dtv", "the page's name"],
  ["inspector", "the page's name"],
  [" · dtv inspector", "the page's name"],
  ["dtv inspector", "the page's name"],
  ["HbbTV:", "the name of a standard"],
  ["MHz", "a unit"],
  ["ms", "a unit"],
  ["ret", "the name of a result"],
  [": volume mute", "what a viewer may type"],
]);
// Files whose texts no viewer reads, and why.
const unread = new Map([
  ["features/request/samples.ts", "programs, which are in no human language"],
]);

/** Names of keys have no small letter; names of configuration keys have an underscore and no space. */
const isName = (text) => !/\p{Ll}/u.test(text) || /^\w*_\w*$/.test(text) || names.has(text) || names.has(text.trim());

const word = /\p{L}{2}/u;
const sentence = /\p{L}{2,}[,;:]? \p{L}{2,}/u;

/** The texts of an expression that becomes a text: not those that it only compares or passes to a function. */
function textsOf(node) {
  if (!node) return [];
  switch (node.type) {
    case "Literal":
      return typeof node.value === "string" ? [node] : [];
    case "JSXText":
      return [node];
    case "TemplateLiteral":
      return [...node.quasis, ...node.expressions.flatMap(textsOf)];
    case "ConditionalExpression":
      return [...textsOf(node.consequent), ...textsOf(node.alternate)];
    case "LogicalExpression":
      return [...textsOf(node.left), ...textsOf(node.right)];
    case "BinaryExpression":
      return node.operator === "+" ? [...textsOf(node.left), ...textsOf(node.right)] : [];
    case "JSXExpressionContainer":
    case "TSAsExpression":
    case "TSSatisfiesExpression":
      return textsOf(node.expression);
    default:
      return [];
  }
}

const textOf = (node) => (node.type === "TemplateElement" ? node.value.cooked : node.value);

/** The texts of a source file that are no words: "line: text". */
export function literals(file, source) {
  const { program, errors } = parseSync(file, source);
  if (errors.length > 0) throw new Error(`${file}: ${errors[0].message}`);
  const found = new Map();
  const report = (node, pattern) => {
    const text = textOf(node);
    if (!pattern.test(text) || isName(text)) return;
    found.set(node.start, `${source.slice(0, node.start).split("\n").length}: ${text.trim().replace(/\s+/g, " ")}`);
  };

  function visit(node) {
    if (Array.isArray(node)) return node.forEach((each) => visit(each));
    if (typeof node?.type !== "string") return;
    if (node.type === "ImportDeclaration" || node.type.startsWith("TSType") || node.type === "TSInterfaceDeclaration") return;
    // The lists of words themselves.
    if (node.type === "CallExpression" && node.callee.name === "words") return;
    if (node.type === "VariableDeclarator" && node.id.name === "shared" && file.endsWith("app/words.ts")) return;
    if (node.type === "CallExpression" && selecting.has(node.callee.property?.name)) return visit(node.callee);
    // What a programmer reads: errors that are thrown, and the console.
    if (node.type === "ThrowStatement") return;
    if (node.type === "CallExpression" && node.callee.object?.name === "console") return;
    if (node.type === "JSXElement" && verbatim.has(node.openingElement.name.name)) return visit(node.openingElement.attributes);
    if (node.type === "JSXAttribute") {
      const name = node.name.name;
      if (silent.has(name) || String(name).startsWith("data-")) return visitCode(node.value);
      for (const text of textsOf(node.value)) report(text, word);
    }
    if (node.type === "JSXElement" || node.type === "JSXFragment") {
      for (const child of node.children) for (const text of textsOf(child)) report(text, word);
    }
    if (node.type === "Literal" && typeof node.value === "string") report(node, sentence);
    if (node.type === "TemplateElement") report(node, sentence);
    for (const child of Object.values(node)) visit(child);
  }

  /** Within a silent attribute, only components can show a text. */
  function visitCode(node) {
    if (Array.isArray(node)) return node.forEach(visitCode);
    if (typeof node?.type !== "string") return;
    if (node.type.startsWith("JSX") && node.type !== "JSXExpressionContainer") return visit(node);
    for (const child of Object.values(node)) visitCode(child);
  }

  visit(program);
  return [...found].sort(([one], [other]) => one - other).map(([, text]) => text);
}

/** The rows of the catalogue, by id: the texts in the order of its columns. */
export function readCatalogue(source) {
  const rows = [...source.matchAll(/^DTV_TEXT\((\w+), (.*)\)$/gm)];
  return new Map(rows.map(([, id, texts]) => [id, JSON.parse(`[${texts}]`)]));
}

const languages = ["English", "German", "French", "Spanish", "Turkish"];
const holes = (text) => [...new Set(text.match(/\{\d\}/g))].sort().join(" ");

/** What is wrong with a word of the page. */
export function wordProblems(id, english, catalogue) {
  const row = catalogue.get(id);
  if (!row) return [`${id} is not in the catalogue`];
  const ret = [];
  if (row.length !== languages.length) ret.push(`${id} has ${row.length} languages`);
  if (row[0] !== english) ret.push(`${id} is "${english}" here and "${row[0]}" in the catalogue`);
  row.forEach((text, index) => {
    if (text.trim() === "") ret.push(`${id} is empty in ${languages[index]}`);
    if (holes(text) !== holes(english)) ret.push(`${id} has other holes in ${languages[index]}`);
    if (text.split("`").length % 2 === 0) ret.push(`${id} has an odd number of backquotes in ${languages[index]}`);
  });
  return ret;
}

/** The words that a file declares: id and English text. */
function declared(file, source) {
  const { program } = parseSync(file, source);
  const ret = [];
  (function visit(node) {
    if (Array.isArray(node)) return node.forEach(visit);
    if (typeof node?.type !== "string") return;
    if (node.type === "Property" && /^IDS_\w+$/.test(node.key.name ?? "") && node.value.type === "Literal") {
      ret.push([node.key.name, node.value.value]);
    }
    Object.values(node).forEach(visit);
  })(program);
  return ret;
}

function selftest() {
  const sample = `
    import { a } from "some module";
    const b = <p class="two words" title={on ? "Shown" : label("IDS_X")}>Text {n > 1 ? "more" : \`\${n} of them\`}</p>;
    const c = <div><code>dtvctl tv</code> · {label("IDS_Y")} {kind === "red herring" ? 1 : 2}</div>;
    const d = () => tell("It has failed.");
    const e = <Row key="k" render={(row) => <i aria-label="Mark" />} data-x="one two" />;
    throw new Error("for the programmer");`;
  const expected = ["3: Shown", "3: Text", "3: more", "3: of them", "4: red herring", "5: It has failed.", "6: Mark"];
  const got = literals("sample.tsx", sample);
  if (JSON.stringify(got) !== JSON.stringify(expected)) throw new Error(`selftest: ${JSON.stringify(got)}`);
  const catalogue = readCatalogue('DTV_TEXT(IDS_A, "A {0}", "A", "", "A {0}", "A {0}")\nDTV_TEXT(IDS_B, "B", "B", "B", "B", "B")\n');
  const wrong = wordProblems("IDS_A", "A {0}", catalogue);
  if (wrong.length !== 3 || wordProblems("IDS_B", "B", catalogue).length !== 0) throw new Error(`selftest: ${wrong}`);
  if (wordProblems("IDS_B", "C", catalogue).length !== 1) throw new Error("selftest: another English text");
  if (wordProblems("IDS_C", "C", catalogue).length !== 1) throw new Error("selftest: a word that is missing");
}

function check() {
  const sources = new Map();
  for (const name of readdirSync(join(root, "src"), { recursive: true })) {
    if (/\.tsx?$/.test(name)) sources.set(name, readFileSync(join(root, "src", name), "utf8"));
  }
  const catalogue = readCatalogue(readFileSync(catalogueFile, "utf8"));
  const problems = [];
  const shared = new Map(declared("words.ts", sources.get("app/words.ts")));
  const idsIn = (source) => new Set(source.match(/\bIDS_\w+(?=")/g));
  for (const [file, source] of sources) {
    const say = (text) => problems.push(`web/src/${file}:${text}`);
    if (!unread.has(file)) literals(file, source).forEach(say);
    const own = declared(file, source).filter(([id, text]) => shared.get(id) !== text || file === "app/words.ts");
    for (const [id, english] of own) {
      for (const problem of wordProblems(id, english, catalogue)) say(` ${problem}`);
      if (shared.has(id) && file !== "app/words.ts") say(` ${id} is a shared word`);
    }
    const scope = file === "app/words.ts" ? "" : basename(file) === "words.ts" ? `${dirname(file)}/` : file;
    const users = [...sources].filter(([name]) => name.startsWith(scope)).map(([, text]) => idsIn(text));
    // The words of a row's section are chosen in app/catalogue.ts.
    if (scope === "features/uris/") users.push(idsIn(sources.get("app/catalogue.ts")));
    for (const [id] of own) if (!users.some((ids) => ids.has(id))) say(` ${id} is not used`);
  }
  return problems;
}

selftest();
const problems = check();
for (const problem of problems) console.error(problem);
if (problems.length > 0) console.error(`${relative(process.cwd(), import.meta.filename)}: ${problems.length} problems`);
process.exitCode = problems.length > 0 ? 1 : 0;
