import "./breadcrumbs.css";

interface BreadcrumbsProps<Id> {
  label: string;
  /** From the outermost folder to the one that is shown. */
  path: readonly { id: Id; name: string }[];
  /** Whether the last folder can be opened too, because something else than its content is shown. */
  away: boolean;
  /** How many entries are shown; null: unknown. */
  total: number | null;
  onOpen: (id: Id, name: string) => void;
}

/** Where a list of files is. */
export const Breadcrumbs = <Id extends string | number>({ label, path, away, total, onOpen }: BreadcrumbsProps<Id>) => (
  <nav class="breadcrumbs" aria-label={label}>
    <ol>
      {path.map(({ id, name }, index) => (
        <li key={id}>
          {index + 1 < path.length || away ? (
            <button type="button" class="link-button" dir="auto" onClick={() => onOpen(id, name)}>
              {name}
            </button>
          ) : (
            <span aria-current="page" dir="auto">
              {name}
            </span>
          )}
        </li>
      ))}
    </ol>
    <span class="count" role="status">
      {total ?? ""}
    </span>
  </nav>
);
