import type { FunctionComponent } from "preact";

/** One row of the registry of views: `export const view: View` in a feature's `view.ts`. */
export interface View {
  /** Also the address of a page: "#configuration". */
  id: string;
  /** In the language of the page. */
  title: () => string;
  /** Views and their tabs are sorted by this number, lowest first. */
  order: number;
  icon: FunctionComponent;
  component: FunctionComponent;
  /**
   * True for one of the three columns, which are visible together on a wide screen. Any other view is a page with an
   * address, rendered only while it is chosen; it replaces the first two columns.
   */
  column?: true;
  /** A number on the tab; none is shown for 0. */
  badge?: () => { count: number; label: string };
}
