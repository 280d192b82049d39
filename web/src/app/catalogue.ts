import type { Field, ItemType, ListResult, NamedValue, UriRow } from "./protocol";

/** The URIs that the plugin lists, grouped, ranked and filtered. The texts' catalogue is i18n/catalogue.def. */

export interface Row extends UriRow {
  /** The URI without its group's prefix. */
  tail: string;
  /** A get or set of it has an effect, or its event is raised. */
  served: boolean;
  /** The word of the heading above rows of this kind; empty for served rows. */
  section: "" | "IDS_WITHOUT_EFFECT" | "IDS_NOT_SERVED";
  /** The texts that a search examines, in lower case: the names of the URI, and what describes it. */
  names: string;
  about: string;
}

const sections = ["", "", "IDS_WITHOUT_EFFECT", "IDS_NOT_SERVED"] as const;

export interface Group {
  key: string;
  /** The common beginning of the group's URIs, up to a slash. */
  prefix: string;
  rows: Row[];
  served: boolean;
  /** Of a search: the words are not all in the names of these rows, but in what describes them. */
  described?: true;
}

export const hexId = (id: number): string => `0x${id.toString(16).toUpperCase().padStart(4, "0")}`;

export const shortType = (type: string): string => type.replace(/^TYPE_/, "");

function commonPrefix(uris: string[]): string {
  let prefix = uris[0] ?? "";
  for (const uri of uris) {
    while (!uri.startsWith(prefix)) prefix = prefix.slice(0, -1);
  }
  return prefix.slice(0, prefix.lastIndexOf("/") + 1);
}

// Sorts URIs: first those with a get or set, then those that only notify, then those that are accepted without effect,
// last those that nothing serves.
const rank = (row: UriRow): number => (row.get || row.set ? 0 : row.notify ? 1 : row.without_effect ? 2 : 3);
const rankOfGroup = (group: Group): number => Math.min(...group.rows.map(rank));

const valuesText = (values: NamedValue[] | null | undefined): string =>
  (values ?? []).map(({ value, help }) => `${value} ${help ?? ""}`).join(" ");

const fieldsText = (fields: Field[] | null | undefined, uri: string): string =>
  (fields ?? [])
    .filter((field) => field.uri == null || field.uri === uri)
    .map(({ key, unit, values, help, fields: inner }) =>
      [key, unit ?? "", valuesText(values), help ?? "", fieldsText(inner, uri)].join(" "),
    )
    .join(" ");

function aboutOf(row: UriRow, type: ItemType | undefined): string {
  const uses = [type?.query, type?.set?.fields, type?.response, type?.notify?.fields];
  const fields = uses.map((use) => fieldsText(use, row.uri));
  return [row.help ?? "", row.unit ?? "", valuesText(row.values), ...fields].join(" ").toLowerCase();
}

/** The registry by group, sorted by rank and then by the registry's own order. */
export function groupRows({ uris, types }: ListResult): Group[] {
  const byGroup = new Map<string, UriRow[]>();
  for (const row of uris) {
    const key = String(row.group);
    const rows = byGroup.get(key);
    if (rows) rows.push(row);
    else byGroup.set(key, [row]);
  }
  const groups = [...byGroup].map(([key, members]): Group => {
    const prefix = commonPrefix(members.map((row) => row.uri));
    const rows = members.map((row) => ({
      ...row,
      tail: row.uri.slice(prefix.length),
      served: rank(row) < 2,
      section: sections[rank(row)] ?? "",
      names: `${row.uri} ${row.type} ${hexId(row.id)}`.toLowerCase(),
      about: aboutOf(row, types[row.type]),
    }));
    return { key, prefix, rows: rows.sort((a, b) => rank(a) - rank(b)), served: rows.some((row) => row.served) };
  });
  return groups.sort((a, b) => rankOfGroup(a) - rankOfGroup(b));
}

/** The rows that `is` returns true for, without the groups that have none. */
function pick(groups: Group[], is: (row: Row) => boolean): Group[] {
  return groups.map((group) => ({ ...group, rows: group.rows.filter(is) })).filter(({ rows }) => rows.length > 0);
}

/** Whether a word of the text begins with this. In the middle of words, descriptions would match too much. */
function hasBeginning(text: string, word: string): boolean {
  for (let at = text.indexOf(word); at >= 0; at = text.indexOf(word, at + 1)) {
    if (at === 0 || !/[a-z0-9]/.test(text[at - 1]!)) return true;
  }
  return false;
}

/** The rows that contain every word: first those whose names do, then those whose names and descriptions do together. */
export function filterGroups(groups: Group[], words: string[], servedOnly: boolean): Group[] {
  if (words.length === 0 && !servedOnly) return groups;
  const allowed = (row: Row) => !servedOnly || row.served;
  const named = (row: Row) => words.every((word) => row.names.includes(word));
  const described = (row: Row) => words.every((word) => row.names.includes(word) || hasBeginning(row.about, word));
  return [
    ...pick(groups, (row) => allowed(row) && named(row)),
    ...pick(groups, (row) => allowed(row) && !named(row) && described(row)).map(
      (group): Group => ({ ...group, key: `${group.key} described`, described: true }),
    ),
  ];
}
