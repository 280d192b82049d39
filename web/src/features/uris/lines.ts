import type { Group, Row } from "../../app/catalogue";
import type { label } from "./words";

/** A line of the list: the head of a group, the head of a section within a group, or a URI. */
export type Line =
  | { kind: "group"; key: string; group: Group; open: boolean }
  | { kind: "section"; key: string; text: Parameters<typeof label>[0] | "" }
  | { kind: "uri"; key: string; row: Row; described: boolean };

/** The key of a URI's line. The registry may list a URI twice, but with two identifiers. */
export const lineKey = (row: Row): string => `uri ${row.id}`;

/** The lines of all groups; a closed group shows only its head. */
export function linesOf(groups: Group[], isOpen: (group: Group) => boolean): Line[] {
  const lines: Line[] = [];
  for (const [index, group] of groups.entries()) {
    if (group.described && !groups[index - 1]?.described) {
      lines.push({ kind: "section", key: "described", text: "IDS_FOUND_IN_DESCRIPTION" });
    }
    const open = isOpen(group);
    lines.push({ kind: "group", key: `group ${group.key}`, group, open });
    if (!open) continue;
    let section = group.rows[0]?.section ?? "";
    for (const row of group.rows) {
      if (row.section !== section) {
        section = row.section;
        lines.push({ kind: "section", key: `section ${group.key} ${section}`, text: section });
      }
      lines.push({ kind: "uri", key: lineKey(row), row, described: group.described ?? false });
    }
  }
  return lines;
}
