import type { UriRow } from "./protocol";

/** The URIs that the plugin lists, grouped, ranked and filtered. The texts' catalogue is i18n/catalogue.def. */

export interface Row extends UriRow {
  /** The URI without its group's prefix. */
  tail: string;
  /** A get or set of it has an effect, or its event is raised. */
  served: boolean;
  /** The heading above rows of this kind; empty for served rows. */
  section: "" | "Without effect" | "Not served";
  /** The text that a search examines, in lower case. */
  haystack: string;
}

const sections = ["", "", "Without effect", "Not served"] as const;

export interface Group {
  key: string;
  /** The common beginning of the group's URIs, up to a slash. */
  prefix: string;
  rows: Row[];
  served: boolean;
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

/** The registry by group, sorted by rank and then by the registry's own order. */
export function groupRows(uris: UriRow[]): Group[] {
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
      haystack: `${row.uri} ${row.type} ${hexId(row.id)} ${row.help ?? ""}`.toLowerCase(),
    }));
    return { key, prefix, rows: rows.sort((a, b) => rank(a) - rank(b)), served: rows.some((row) => row.served) };
  });
  return groups.sort((a, b) => rankOfGroup(a) - rankOfGroup(b));
}

/** The rows that contain every word, without the groups that have none. */
export function filterGroups(groups: Group[], words: string[], servedOnly: boolean): Group[] {
  if (words.length === 0 && !servedOnly) return groups;
  const ret: Group[] = [];
  for (const group of groups) {
    const rows = group.rows.filter(
      (row) => (!servedOnly || row.served) && words.every((word) => row.haystack.includes(word)),
    );
    if (rows.length > 0) ret.push({ ...group, rows });
  }
  return ret;
}
