import type { View } from "../../app/view";
import { RecordIcon } from "../../ui/icons";
import { RecordingsPanel } from "./recordings-panel";
import { label } from "./words";

export const view: View = {
  id: "recordings",
  title: () => label("IDS_RECORDINGS"),
  order: 26,
  icon: RecordIcon,
  component: RecordingsPanel,
};
