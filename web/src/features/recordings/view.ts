import { lazy } from "../../app/lazy";
import type { View } from "../../app/view";
import { RecordIcon } from "../../ui/icons";
import { label } from "./words";

export const view: View = {
  id: "recordings",
  title: () => label("IDS_RECORDINGS"),
  order: 26,
  icon: RecordIcon,
  component: lazy(async () => (await import("./recordings-panel")).RecordingsPanel),
};
